// Stands between the program with its stand-ins and the allocator: the linker sends their calls
// here (--wrap), and none of any library's. Between the program and the system's power script too,
// if it has one: there it is missing.
#pragma once

// From now on the number-th allocation fails, counted from 1; 0: none does.
void allocation_fail_at(int number);

// The allocation that was to fail has failed.
bool allocation_has_failed();

// How many of malloc, calloc and strdup are not freed yet: compared over code that uses no other.
int allocations_in_use();
