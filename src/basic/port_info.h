// The greeting of the basic interface, and what the daemon's first word on the port leaves behind.
#pragma once

#include "dep/trell.h"

// Reply to the PORT_INFO that start-up sends on the basic path: takes over the escape character and
// the power outlets and greets the user.
void basic_port_info_reply(node *reply, void *context);
