// A program of another project. It sees the public header, and nothing that stands beside it in the checkout.
#include <quenta_native.h>

#if __has_include(<status.hpp>) || __has_include(<lagrange.hpp>)
#error "headers of the inside of the library are found"
#endif

int main() {
    return quenta_rt_init() ? 0 : 1;
}
