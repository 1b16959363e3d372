// The Windows headers, as the files of this folder include them. Never included from a contract header.
#pragma once

#include <windows.h>

// Macros that would rename functions of our own contracts.
#undef ReplaceFile
#undef Yield
