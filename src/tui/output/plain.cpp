// Stands in the place of picture.cpp and all below it in a build that leaves the module out: what
// termbox2 writes goes out as it is.

#include "dep/termbox.h"
#include "tui/output/picture.h"

namespace {

bool (*send_bytes)(const char *bytes, size_t count);

} // namespace

void picture_start(const char *, bool (*send)(const char *bytes, size_t count))
{
    send_bytes = send;
}

void picture_present(const Cursor &)
{
    (void)tb_present(); // what is lost is painted anew
}

bool picture_write(const char *bytes, size_t count)
{
    return send_bytes(bytes, count);
}
