#include "terminal.h"

#include <sstream>

#include <unistd.h>

using namespace std::literals;

namespace {

std::vector<std::string> hook_saw;

// Takes everything there is.
int hook(tb_event *event, size_t *consumed)
{
    EXPECT_EQ(event->type + event->mod + event->key, 0);
    hook_saw.emplace_back(unparsed_input());
    event->type = 4;
    *consumed = unparsed_input().size();
    return TB_OK;
}

// Every event there is: "k5" a control key, "c41" a character; and the code that ended them unless
// that says that there is no more.
std::string drain()
{
    std::string events;
    tb_event event = {};
    int result;
    while ((result = tb_peek_event(&event, 0)) == TB_OK) {
        char text[32];
        snprintf(text, sizeof(text),
                 event.ch                  ? "c%x"
                 : event.mod & TB_MOD_CTRL ? "k%x^"
                                           : "k%x",
                 event.ch ? event.ch : event.key);
        events += (events.empty() ? "" : " ") + (event.type == 4 ? "hook"s : text);
        unparsed_input(); // a NUL follows, also after a part was taken
    }
    return result == TB_ERR_NO_EVENT ? events : events + " error " + std::to_string(result);
}

TEST_F(TermboxTest, BytesBecomeEvents)
{
    struct Row {
        std::string typed; // a bar: the rest is typed once this is read
        std::string events;
        std::vector<std::string> hooked;
    } const rows[] = {
        {"a Z~", "c61 c20 c5a c7e", {}},
        {"\0\x01\r\t\x08\x1f\x7f"s, "k0^ k1^ kd^ k9^ k8^ k1f^ k7f^", {}},
        {"é中\U0001f600", "ce9 c4e2d c1f600", {}},
        {"\x80\x85\xbf\xfe\xff", "k0 c5 c3f c7e c7f", {}},
        {"\xe9x\xe4\xb8y", "cfffd c78 cfffd c38 c79", {}}, // no key after a bad byte is lost
        {"\xc0\x80\xed\xa0\x80\xf8\x88\x80\x80\x80z", "cfffd cfffd cfffd c7a", {}},
        {"\033", "k1b", {}},
        {"\033[A", "hook", {"\033[A"}},
        {"\033[Axyz\x05", "hook", {"\033[Axyz\x05"}},
        {"k\033[A", "c6b hook", {"\033[A"}},
        {"k\033", "c6b k1b", {}},
        {"\033\033", "hook", {"\033\033"}},
        {"\xe4|\xb8|\xad", "||c4e2d", {}},
        {"a\xf0\x9f|\x98\x80z", "c61|c1f600 c7a", {}},
        {"\xe9|x", "|cfffd c78", {}},
        {"\033|[A", "k1b|c5b c41", {}},
    };
    ASSERT_EQ(start(), TB_OK);
    ASSERT_EQ(tb_set_func(TB_FUNC_EXTRACT_PRE, hook), TB_OK);
    for (const Row &row : rows) {
        SCOPED_TRACE(row.typed);
        hook_saw.clear();
        std::string events;
        std::istringstream pieces(row.typed);
        for (std::string piece; std::getline(pieces, piece, '|');) {
            type(piece);
            events += drain() + (pieces.eof() ? "" : "|");
        }
        EXPECT_EQ(events, row.events);
        EXPECT_EQ(hook_saw, row.hooked);
    }
    close(master);
    master = -1;
    EXPECT_EQ(drain(), " error " + std::to_string(TB_ERR_READ)) << "the terminal's end";
}

} // namespace
