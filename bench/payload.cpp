#include "bench/payload.h"

#include <array>
#include <random>
#include <stdio.h>

namespace {

using Random = std::mt19937;

size_t below(Random &random, size_t limit)
{
    return random() % limit;
}

template <typename... Values>
std::string text(const char *format, Values... values)
{
    char line[512];
    snprintf(line, sizeof line, format, values...);
    return line;
}

std::string boot_line(Random &random, unsigned int count)
{
    static const char *const messages[] = {
        "usb 1-%u: new high-speed USB device number %u using xhci_hcd",
        "pci 0000:00:%02u.0: [8086:7%03u] type 00 class 0x060100 conventional PCI endpoint",
        "ACPI: PCI: Interrupt link LNK%u configured for IRQ %u",
        "EXT4-fs (sda%u): mounted filesystem with ordered data mode. Quota mode: none. Opts: %u",
        "random: crng init done (%u bytes in %u ms)",
        "tcp: Hash tables configured (established %u bind %u)",
        "serial8250: ttyS%u at I/O 0x3f8 (irq = %u, base_baud = 115200) is a 16550A",
        "mmc%u: new ultra high speed SDR104 SDHC card at address aaa%u",
    };
    const auto a = static_cast<unsigned int>(below(random, 8));
    const auto b = static_cast<unsigned int>(below(random, 900));
    if (below(random, 4) == 0) {
        return text("[\033[0;32m  OK  \033[0m] Started service-%u.service - Unit number %u.\r\n", a,
                    b);
    }
    char message[256];
    snprintf(message, sizeof message, messages[below(random, std::size(messages))], a, b);
    return text("[%5u.%06u] %s\r\n", count / 300, b * 1000 + a, message);
}

std::string listing_line(Random &random, unsigned int count)
{
    static const char *const endings[] = {"c", "h", "cpp", "o", "txt", "conf", "service"};
    if (count % 40 == 0) {
        return text("\r\n./source/part%u/module%u:\r\ntotal %u\r\n", count / 400, count / 40,
                    static_cast<unsigned int>(below(random, 9000)));
    }
    return text("-rw-r--r-- 1 root root %7u Jan %2u %02u:%02u file_%u.%s\r\n",
                static_cast<unsigned int>(below(random, 1000000)),
                static_cast<unsigned int>(1 + below(random, 28)),
                static_cast<unsigned int>(below(random, 24)),
                static_cast<unsigned int>(below(random, 60)), count,
                endings[below(random, std::size(endings))]);
}

// One refresh of the whole screen.
std::string top_screen(Random &random, unsigned int count)
{
    std::string screen =
        text("\033[H\033[mtop - 12:%02u:%02u up 3 days,  2:11,  2 users,  load "
             "average: 0.%02u, 0.31, 0.27\033[K\r\n",
             count / 60 % 60, count % 60, static_cast<unsigned int>(below(random, 100)));
    screen += text("Tasks: \033[1m%3u\033[m total, \033[1m  2\033[m running\033[K\r\n",
                   static_cast<unsigned int>(120 + below(random, 20)));
    screen += "\033[K\r\n\033[7m  PID USER      PR  NI    VIRT    RES  %CPU  %MEM     TIME+ "
              "COMMAND         \033[m\033[K";
    for (unsigned int row = 0; row < 18; row++) {
        screen += text("\r\n%s%5u root      20   0 %7u %6u  %2u.%u   0.%u   %2u:%02u.%02u "
                       "process-%u\033[m\033[K",
                       row < 2 ? "\033[1m" : "", static_cast<unsigned int>(below(random, 30000)),
                       static_cast<unsigned int>(below(random, 1000000)),
                       static_cast<unsigned int>(below(random, 100000)),
                       static_cast<unsigned int>(below(random, 100)),
                       static_cast<unsigned int>(below(random, 10)),
                       static_cast<unsigned int>(below(random, 10)),
                       static_cast<unsigned int>(below(random, 60)),
                       static_cast<unsigned int>(below(random, 60)),
                       static_cast<unsigned int>(below(random, 100)), row);
    }
    return screen + "\033[J";
}

// Somewhere on the screen, a few characters, each with attributes of its own.
std::string dense_run(Random &random, unsigned int)
{
    std::string run = text("\033[%u;%uH", static_cast<unsigned int>(1 + below(random, 22)),
                           static_cast<unsigned int>(1 + below(random, 70)));
    for (int i = 0; i < 8; i++) {
        run += text("\033[%u;%u;%um%c", static_cast<unsigned int>(below(random, 8)),
                    static_cast<unsigned int>(30 + below(random, 8)),
                    static_cast<unsigned int>(40 + below(random, 8)),
                    static_cast<char>('A' + below(random, 26)));
    }
    return run;
}

std::string ideographs(Random &random, unsigned int count)
{
    std::string line = text("%u ", count);
    const size_t length = 10 + below(random, 28);
    for (size_t i = 0; i < length; i++) {
        const size_t code = 0x4e00 + below(random, 0x5000);
        line += static_cast<char>(0xe0 | code >> 12);
        line += static_cast<char>(0x80 | (code >> 6 & 0x3f));
        line += static_cast<char>(0x80 | (code & 0x3f));
    }
    return line + "\r\n";
}

std::string pasted_line(Random &random, unsigned int)
{
    std::string line;
    const size_t length = 20 + below(random, 60);
    for (size_t i = 0; i < length; i++) {
        line += static_cast<char>(i % 7 == 6 ? ' ' : 'a' + below(random, 26));
    }
    return line + "\r";
}

// A few units that compile, and one with a warning, coloured as compilers do.
std::string compiled_unit(Random &random, unsigned int count)
{
    const auto a = static_cast<unsigned int>(below(random, 100));
    const auto b = static_cast<unsigned int>(below(random, 1000));
    if (count % 4 != 0) {
        return text("[%3u%%] \033[32mBuilding CXX object source/part%u/CMakeFiles/part%u.dir/"
                    "module_%u.cpp.o\033[0m\r\n",
                    count / 20 % 100, a, a, b);
    }
    const std::string place = text("source/part%u/module_%u.cpp:%u:%u:", a, b, b + 17, a % 30 + 5);
    const int indent = static_cast<int>(a % 30) + 4;
    return text(
               "\033[01m\033[K%s\033[m\033[K \033[01;35m\033[Kwarning: \033[m\033[Kconversion from "
               "'\033[01m\033[Kint\033[m\033[K' may change the value of a result "
               "[\033[01;35m\033[K-Wconversion\033[m\033[K]\r\n",
               place.c_str()) +
           text("%5u | %*sresult_%u = \033[01;35m\033[Kvalue_of(index)\033[m\033[K;\r\n", b + 17,
                indent, "", b) +
           text("      | %*s\033[01;35m\033[K^^^^^^^^^^^^^^^\033[m\033[K\r\n", indent + 13, "");
}

} // namespace

std::string make_payload(Payload kind, size_t size)
{
    constexpr std::array pieces = {boot_line,  listing_line, top_screen,   dense_run,
                                   ideographs, pasted_line,  compiled_unit};
    Random random(20261123);
    std::string payload;
    payload.reserve(size + 4096);
    for (unsigned int count = 0; payload.size() < size; count++) {
        payload += pieces[static_cast<size_t>(kind)](random, count);
    }
    return payload;
}
