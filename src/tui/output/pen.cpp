#include "tui/output/pen.h"

#include "text/digits.h"

namespace {

bool is_colour(int number, int base)
{
    return (number >= base && number <= base + 7) ||
           (number >= base + 60 && number <= base + 67); // the bright ones
}

bool apply_number(Pen &pen, int number)
{
    if (number == 0) {
        pen = {};
    } else if (number <= 7) {
        pen.attributes = static_cast<uint8_t>(pen.attributes | 1U << number);
    } else if (is_colour(number, 30)) {
        pen.foreground = static_cast<uint8_t>(number);
    } else if (is_colour(number, 40)) {
        pen.background = static_cast<uint8_t>(number);
    } else {
        return false;
    }
    return true;
}

} // namespace

bool pen_apply(Pen &pen, std::string_view parameters)
{
    for (bool more = true; more;) {
        int number = 0;
        if (!take_number(parameters, number) || !apply_number(pen, number)) {
            return false;
        }
        more = !parameters.empty();
        if (more && parameters[0] != ';') {
            return false;
        }
        parameters.remove_prefix(more ? 1 : 0);
    }
    return true;
}

bool pen_is_plain(const Pen &pen)
{
    return pen.attributes == 0 && pen.background == 0;
}

size_t pen_change(const Pen &from, const Pen &to, char *bytes)
{
    if (from == to) {
        return 0;
    }
    const bool adds = (from.attributes & ~to.attributes) == 0 &&
                      (from.foreground == 0 || to.foreground != 0) &&
                      (from.background == 0 || to.background != 0);
    const Pen base = adds ? from : Pen{};
    size_t length = 0;
    bytes[length++] = '\033';
    bytes[length++] = '['; // what follows without a number resets
    bool separate = !adds;
    const auto add = [&](unsigned int number) {
        if (separate) {
            bytes[length++] = ';';
        }
        length += put_number(bytes + length, static_cast<int>(number));
        separate = true;
    };
    for (unsigned int number = 1; number <= 7; number++) {
        if ((to.attributes & ~base.attributes) >> number & 1) {
            add(number);
        }
    }
    if (to.foreground != base.foreground) {
        add(to.foreground);
    }
    if (to.background != base.background) {
        add(to.background);
    }
    bytes[length++] = 'm';
    return length;
}
