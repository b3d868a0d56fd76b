// argtable3 as the program includes it.
#pragma once

#include <stdio.h>

#include <argtable3.h>
