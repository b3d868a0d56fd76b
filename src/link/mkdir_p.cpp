#include "link/mkdir_p.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include "link/owned.h"

namespace {

// Makes one directory, which may exist already.
int make_directory(const char *path)
{
    errno = 0;
    if (mkdir(path, 0777) == 0) {
        return 0;
    }
    if (errno != EEXIST) {
        return -1;
    }
    struct stat status;
    if (stat(path, &status) != 0) {
        return -1;
    }
    if (!S_ISDIR(status.st_mode)) {
        errno = ENOTDIR;
        return -1;
    }
    errno = 0;
    return 0;
}

} // namespace

int mkdir_p(const char *path)
{
    errno = 0;
    Text copy(strdup(path));
    if (!copy) {
        return -1;
    }
    char *const start = copy.get();
    if (*start != '\0') {
        // From the second character on: a leading "/" separates nothing.
        for (char *at = start + 1; *at != '\0'; at++) {
            if (*at != '/') {
                continue;
            }
            *at = '\0';
            if (make_directory(start) != 0) {
                return -1;
            }
            *at = '/';
        }
    }
    return make_directory(start);
}
