#include "sim/options.h"

namespace sim {

const char HELP_TEXT[] =
    R"(Usage: zorvad-sim [OPTION...] --port KEY BEHIND [PORT-OPTION...] [--port KEY ...]
       zorvad-sim [--run-dir DIR] --control KEY LINE...

Serves ports as the daemon zorvad does, each at DIR/KEY/cmd.sck and DIR/KEY/data.sck, until SIGINT,
SIGTERM or SIGHUP. What it made in DIR is removed at the end.

Options
  --run-dir DIR        base directory, /var/run/zorvad unless given; the client knows no other
  --mode OCTAL         mode of the two sockets, for instance 666 for the users of all accounts
  --background         go to the background once ready; prints the process id
  --help               print this text
  --version            print the version

Behind the port
  --exec COMMAND       a program on a pty, run by sh -c. It starts with the first client; when it
                       ends, all clients are hung up, and the next client starts it anew
  --device PATH        a serial device
  --loopback           sends back what it gets

For the option before
  --size COLSxROWS     of a program's terminal, 80x24 unless given
  --term NAME          TERM of a program, xterm unless given
  --baud N             of a device, 9600 unless given
  --format 8N1         data bits 5 to 8, parity N, E or O, and stop bits 1 or 2 of a device
  --flow KIND          none, rtscts or xonxoff

For any port
  --label TEXT         shown to users, the key unless given
  --info TEXT          shown to users, the program or the device with its settings unless given
  --escape KEY         the escape character: its number, ^E, or the character; 5 unless given
  --signals LIST       modem lines that are on: dcd,dsr,ri,cts; a device has its own
  --outlet NAME        a power outlet of the port; repeatable
  --history N          lines kept for SCROLLBACK, 1000 unless given

Control lines, each one argument, for a port that is being served
  signals LIST         modem lines; none: all off
  size COLSxROWS       a program's terminal
  label TEXT           the port's label
  escape KEY           the port's escape character
  hangup               hang up all clients
  say TEXT             write TEXT to all command connections, though nobody asked
  stats                print counts of clients, bytes, commands and disconnected slow clients,
                       and whether what is behind the port runs

Exit status: 0 at the end by a signal; 1 when a port cannot be served, or a control line fails; 2 for
wrong arguments.
)";

} // namespace sim
