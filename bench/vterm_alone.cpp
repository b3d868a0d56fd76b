#include "bench/vterm_alone.h"

#include <algorithm>
#include <chrono>
#include <list>
#include <stdlib.h>
#include <vector>

#include "dep/vterm.h"

namespace {

constexpr size_t PIECE = 1 << 16;
constexpr size_t LINES_KEPT = 1000;

struct Emulator {
    struct Damage {
        int first, end;
    };
    std::vector<Damage> damage;
    std::list<std::vector<VTermScreenCell>> lines;
    VTermPos cursor{};
};

Emulator &emulator_of(void *user)
{
    return *static_cast<Emulator *>(user);
}

int note_damage(VTermRect place, void *user)
{
    for (int row = place.start_row; row < place.end_row; row++) {
        Emulator::Damage &damage = emulator_of(user).damage[static_cast<size_t>(row)];
        damage.first = std::min(damage.first, place.start_col);
        damage.end = std::max(damage.end, place.end_col);
    }
    return 1;
}

int push_line(int columns, const VTermScreenCell *cells, void *user)
{
    auto &lines = emulator_of(user).lines;
    if (lines.size() < LINES_KEPT) {
        lines.emplace_front();
    } else {
        lines.splice(lines.begin(), lines, std::prev(lines.end()));
    }
    lines.front().assign(cells, cells + columns);
    return 1;
}

int move_cursor(VTermPos position, VTermPos, int, void *user)
{
    emulator_of(user).cursor = position;
    return 1;
}

VTermScreenCallbacks make_callbacks()
{
    VTermScreenCallbacks callbacks{};
    callbacks.damage = note_damage;
    callbacks.moverect = [](VTermRect, VTermRect, void *) { return 0; };
    callbacks.movecursor = move_cursor;
    callbacks.settermprop = [](VTermProp, VTermValue *, void *) { return 1; };
    callbacks.bell = [](void *) { return 1; };
    callbacks.resize = [](int, int, void *) { return 1; };
    callbacks.sb_pushline = push_line;
    callbacks.sb_popline = [](int, VTermScreenCell *, void *) { return 0; };
    return callbacks;
}

} // namespace

double vterm_alone_time(std::string_view payload, Size terminal)
{
    const VTermScreenCallbacks callbacks = make_callbacks();
    const Size port = {terminal.rows - 1, terminal.columns};
    Emulator emulator;
    emulator.damage.resize(static_cast<size_t>(port.rows));
    VTerm *vt = vterm_new(port.rows, port.columns);
    VTermScreen *screen = vterm_obtain_screen(vt);
    vterm_screen_enable_altscreen(screen, 1);
    vterm_screen_reset(screen, 1);
    vterm_screen_set_damage_merge(screen, VTERM_DAMAGE_CELL);
    vterm_screen_set_callbacks(screen, &callbacks, &emulator);
    vterm_set_utf8(vt, 1);

    const auto start = std::chrono::steady_clock::now();
    while (!payload.empty()) {
        const size_t length = std::min(payload.size(), PIECE);
        vterm_input_write(vt, payload.data(), length);
        std::fill(emulator.damage.begin(), emulator.damage.end(),
                  Emulator::Damage{port.columns, 0});
        payload.remove_prefix(length);
    }
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
    vterm_free(vt);
    return time.count();
}
