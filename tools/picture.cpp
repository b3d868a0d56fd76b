// Draws a real session as an SVG picture on standard output: a board that has booted, the other
// user's session and the port history, from the cells of the emulated screen. Arguments: the
// client, the key of a port with the board behind it.
#include "support/program.h"

#include <cstdio>

using namespace support;

namespace {

constexpr int ROWS = 20;
constexpr int COLUMNS = 108; // as many as are readable at the width of a page
constexpr int CELL_WIDTH = 8;
constexpr int CELL_HEIGHT = 17;
constexpr int MARGIN = 8;
constexpr int PANEL_HEIGHT = ROWS * CELL_HEIGHT + MARGIN;

// The terminal's palette, then what it shows by itself.
constexpr const char *PALETTE[] = {"#000000", "#ff7b7b", "#35d399", "#c8a820",
                                   "#2458b8", "#bc3fbc", "#11a8cd", "#e5e5e5"};
constexpr const char *FOREGROUND = "#d4d4d4";
constexpr const char *BACKGROUND = "#1e1e1e";

const char *colour(int index, const char *otherwise)
{
    return index >= 0 && index < 8 ? PALETTE[index] : otherwise;
}

std::string escaped(const std::string &text)
{
    std::string result;
    for (char byte : text) {
        switch (byte) {
        case '<':
            result += "&lt;";
            break;
        case '&':
            result += "&amp;";
            break;
        default:
            result += byte;
            break;
        }
    }
    return result;
}

// Columns first to end - 1 of a row, which look alike.
void draw_run(const Screen &screen, int row, int first, int end, int y)
{
    const Cell look = screen.cell(row, first);
    std::string text;
    for (int column = first; column < end; column++) {
        text += screen.cell(row, column).text;
    }
    const char *ink = colour(look.foreground, FOREGROUND);
    const char *paper = colour(look.background, BACKGROUND);
    if (look.reverse) {
        std::swap(ink, paper);
    }
    const int x = MARGIN + first * CELL_WIDTH;
    const int width = (end - first) * CELL_WIDTH;
    if (paper != BACKGROUND) {
        printf("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"%s\"/>\n", x, y, width,
               CELL_HEIGHT, paper);
    }
    if (text.find_first_not_of(' ') != std::string::npos) {
        printf("<text x=\"%d\" y=\"%d\" textLength=\"%d\" fill=\"%s\"%s%s>%s</text>\n", x,
               y + CELL_HEIGHT - 4, width, ink, look.bold ? " font-weight=\"bold\"" : "",
               look.underline ? " text-decoration=\"underline\"" : "", escaped(text).c_str());
    }
}

bool look_alike(Cell a, Cell b)
{
    a.text = b.text;
    return a == b;
}

void draw_screen(const Screen &screen, int top)
{
    for (int row = 0; row < ROWS; row++) {
        int first = 0;
        for (int column = 1; column <= COLUMNS; column++) {
            if (column == COLUMNS ||
                !look_alike(screen.cell(row, first), screen.cell(row, column))) {
                draw_run(screen, row, first, column, top + row * CELL_HEIGHT);
                first = column;
            }
        }
    }
}

void draw_session(Program &client)
{
    client.wait_for_screen("board login:");
    client.wait_for_screen("maria, jon");
    draw_screen(client.screen(), MARGIN);
    client.send("\5d");
    client.wait_for_screen("Press 'Y'");
    draw_screen(client.screen(), MARGIN + PANEL_HEIGHT);
    client.send("n\5s");
    client.wait_for_screen("Line 0 of");
    client.wait_until([&] { return client.screen().text().find("loading") == std::string::npos; },
                      "the port history");
    client.send("t");
    client.wait_for_screen("]RX|");
    draw_screen(client.screen(), MARGIN + 2 * PANEL_HEIGHT);
}

} // namespace

int main(int, char **arguments)
{
    Program client({.arguments = {arguments[1], arguments[2], "admin"},
                    .environment = {{"USER", "maria"}},
                    .rows = ROWS,
                    .columns = COLUMNS});
    client.wait_for_screen("Users: maria");
    Program other({.arguments = {arguments[1], arguments[2], "--basic-interface"},
                   .environment = {{"USER", "jon"}, {"SSH_CLIENT", "192.0.2.9 50412 22"}}});
    const int width = COLUMNS * CELL_WIDTH + 2 * MARGIN;
    const int height = 3 * PANEL_HEIGHT + MARGIN;
    printf(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" font-family=\"monospace\" "
        "font-size=\"13.3\" xml:space=\"preserve\">\n<rect width=\"%d\" height=\"%d\" "
        "fill=\"#808080\"/>\n",
        width, height, width, height);
    for (int panel = 0; panel < 3; panel++) {
        printf("<rect x=\"%d\" y=\"%d\" width=\"%d\" height=\"%d\" fill=\"%s\"/>\n", MARGIN,
               MARGIN + panel * PANEL_HEIGHT, COLUMNS * CELL_WIDTH, ROWS * CELL_HEIGHT, BACKGROUND);
    }
    draw_session(client);
    printf("</svg>\n");
    client.send("\5q");
    return client.wait_for_exit();
}
