// The C host, compiled as C++.
#include "c_host.c"
