// A program of another project. It finds the public header, but no other header of the library.
#include <quenta_native.h>

#if __has_include(<status.hpp>) || __has_include(<lagrange.hpp>)
#error "expected no internal headers of the library on the include path"
#endif

int main() {
    return quenta_rt_init() ? 0 : 1;
}
