// The same program, in C++.
#include "stranger.c"
