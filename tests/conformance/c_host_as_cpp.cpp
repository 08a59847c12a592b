// The same host, compiled as C++.
#include "c_host.c"
