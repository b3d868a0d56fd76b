// Tells the daemon who is attached to the port.
#pragma once

// Queues SET_USER, made from the environment and the access right. Failures are logged; the session
// goes on without it.
void announce_user();
