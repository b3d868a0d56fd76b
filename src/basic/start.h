// The basic interface as a front end.
#pragma once

#include "front/front_end.h"

extern const FrontEnd basic_front_end;

// Input hook while the question about sessions is open: the next chunk, whatever it is, answers it.
void confirm_disconnect_hook(const char *chunk, int32_t length);
