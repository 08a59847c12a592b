// The C host, compiled as C++.
#include "equation_c_host.c"
