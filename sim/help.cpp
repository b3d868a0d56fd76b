#include "sim/options.h"

namespace sim {

const char HELP_TEXT[] =
    R"(Usage: zorvad-sim [OPTION...] --port KEY BEHIND [PORT-OPTION...] [--port KEY ...]
       zorvad-sim [--run-dir DIR] --control KEY LINE...

Serves ports as the daemon zorvad does, each at DIR/KEY/cmd.sck and DIR/KEY/data.sck, until SIGINT,
SIGTERM or SIGHUP. What it made in DIR is removed at the end.

Options
  --run-dir DIR        base directory, /var/run/zorvad unless given
  --mode OCTAL         mode of the two sockets, for instance 666 for the users of all accounts
  --ready-fd N         write "ready" to descriptor N and close it once all sockets listen; without
                       it, that is printed on standard output
  --background         go to the background once ready; prints the process id
  --once               exit when every program has ended and every source was sent to one client
  --help               print this text

Behind the port
  --exec COMMAND       a program on a pty, run by sh -c. It starts with the first client; when it
                       ends, all clients are hung up, and the next client starts it anew
  --device PATH        a serial device
  --loopback           sends back what it gets
  --source FILE        the bytes of FILE for each client, then a hang-up; takes no input
  --sink               takes and drops input, sends nothing

For the option before
  --size COLSxROWS     of a program's terminal, 80x24 unless given
  --term NAME          TERM of a program, xterm unless given
  --start-now          start a program before there is a client
  --baud N             of a device, 9600 unless given
  --format 8N1         data bits 5 to 8, parity N, E or O, and stop bits 1 or 2 of a device
  --flow KIND          none, rtscts or xonxoff
  --repeat N           send a source N times, 0: for ever
  --stay               no hang-up at the end of a source

For any port
  --label TEXT         shown to users, the key unless given
  --info TEXT          shown to users, the program or the device with its settings unless given
  --escape KEY         the escape character: its number, ^E, or the character; 5 unless given
  --signals LIST       modem lines that are on: dcd,dsr,ri,cts; a device has its own
  --outlet NAME        a power outlet of the port; repeatable
  --history N          lines kept for SCROLLBACK, 1000 unless given
  --buffer BYTES       how far a client that does not read may fall behind another one before it is
                       disconnected, 8388608 unless given; a single client is waited for
  --capture FILE       write all input to FILE
  --reply CMD=FILE     answer the command CMD with the bytes of FILE

Faults, for tests
  --fault-delay MS     answer MS milliseconds late
  --fault-split MS     write each byte of a reply by itself, MS milliseconds apart
  --fault-coalesce N   hold replies back and write N of them together
  --fault-garbage MS   write bytes that are no JSON, MS milliseconds before each reply
  --fault-extra TEXT   write TEXT after each reply, together with it
  --fault-mute         never answer
  --fault-only CMD     do the above to the replies to CMD alone
  --fault-hangup WHICH:N[:BYTES]  hang up cmd, data or both on a connection's N-th command, after
                       BYTES bytes of its reply, none unless given
  --fault-hangup WHICH@MS  hang up MS milliseconds after the client connected

Control lines, each one argument, for a port that is being served
  signals LIST         modem lines; none: all off
  size COLSxROWS       a program's terminal
  label TEXT           the port's label
  escape KEY           the port's escape character
  hangup [WHICH]       hang up all clients: cmd, data or both
  say TEXT             write TEXT to all command connections, though nobody asked
  fault NAME [VALUE]   a fault from now on, for instance: fault delay 500; fault none ends all
  stats                print counts of clients, bytes, commands and disconnected slow clients

Exit status: 0 at the end by a signal or by --once; 1 when a port cannot be served, or a control
line fails; 2 for wrong arguments.
)";

} // namespace sim
