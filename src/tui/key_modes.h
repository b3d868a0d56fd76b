// What a program wants the user's terminal to send.
#pragma once

struct KeyModes {
    bool cursor_keys; // of application mode
    bool keypad;
    bool paste; // with marks around it

    bool operator==(const KeyModes &) const = default;
};
