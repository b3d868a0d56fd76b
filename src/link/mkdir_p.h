// Makes a directory with its missing parents.
#pragma once

// Creates path and every missing directory above it with mode 0777 less the umask. Returns 0 with
// errno 0 when the directory exists afterwards, else -1 with errno: ENOTDIR where something else
// stands in the way. The program exports this function by name.
extern "C" int mkdir_p(const char *path);
