// A program of another project, in C++11. It finds the public headers, but no other header of the libraries.
#include <quenta_equations.h>
#include <quenta_native.h>

#if !__has_include(<quenta_equations.hpp>)
#error "expected the header for C++20 on the include path"
#endif

#if __has_include(<status.hpp>) || __has_include(<lagrange.hpp>) || __has_include(<nodes.hpp>)
#error "expected no internal headers of the library on the include path"
#endif

int main() {
    return quenta_rt_init() && quenta_equation_max_nodes() == 5 ? 0 : 1;
}
