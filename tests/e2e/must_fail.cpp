// Fails, which is what is asked of it: the client and the emulator get scripts that differ by one
// attribute of one letter.
#include "e2e/fixture.h"

TEST(MustFail, OneAttributeOfOneLetter)
try {
    support::Session tui(support::TUI);
    tui.start();
    support::Screen direct(23, 80);
    direct.feed("some te\x1b[4mx\x1b[mt");
    tui.daemon.send("some text");
    tui.client->wait_for_screen("some text");
    const support::Comparison what{.rows = 23, .colours = false};
    EXPECT_EQ("", support::compare(direct.picture(), tui.screen().picture(), what));
} catch (const support::Failure &failure) {
    GTEST_SKIP() << failure.what(); // a failure of another kind proves nothing
}
