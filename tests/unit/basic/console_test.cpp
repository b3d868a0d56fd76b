#include "basic/console.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "fuzz/front_end.h"

namespace {

// A read that finds nothing for a while looks like the end of input there.
TEST(Console, ATerminalThatWasMadeToBlockIsReadOn)
{
    BasicInterface basic(true);
    for (const char *key : {"a", "b"}) {
        ASSERT_EQ(0, fcntl(STDIN_FILENO, F_SETFL, O_RDWR));
        (void)ustream_poll(&stdin_stream.stream);
        EXPECT_TRUE(stdin_stream.stream.eof);
        EXPECT_TRUE(run_until([] { return (fcntl(STDIN_FILENO, F_GETFL) & O_NONBLOCK) != 0; }));
        EXPECT_EQ(0, zorvad.quit);
        basic.type(key);
        EXPECT_EQ(key, receive(basic.daemon.data, 1));
    }
}

} // namespace
