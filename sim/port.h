// One port: its endpoint in the file system, its device and its clients, and the bytes between
// them.
//
// The device is read as fast as the fastest client reads, so nothing is lost and a client that
// stands still holds nobody else up; what a slower one has not read yet is kept for it. A client
// that is further behind than its buffer allows is waited for as long as it goes on reading, else
// it is disconnected. Without clients the output goes to the history alone.
#pragma once

#include "sim/client.h"
#include "sim/control.h"
#include "sim/device.h"
#include "sim/endpoint.h"

#include <array>
#include <list>

namespace sim {

struct PortCounts {
    uint64_t input = 0;  // bytes from clients
    uint64_t output = 0; // bytes of the device
    uint64_t commands = 0;
    uint64_t dropped = 0; // clients disconnected for not reading
};

class Port {
public:
    Port(Loop &loop, const Options &options, const PortOptions &port_options);

    // False with a sentence in error.
    bool open(std::string &error);
    void program_ended(pid_t process);
    // Lets go of clients that have left; called outside of all callbacks.
    void sweep();
    // Takes no more clients and hangs up those that are there.
    void shut_down();
    bool idle() const { return clients_.empty(); }

    // For the connections.
    bool input_blocked() const { return !input_queue_.empty(); }
    void from_client(std::string_view bytes);
    void output_moved();
    std::string answer_request(Client &client, const json_object *request);

    // For the control socket.
    PortState &state() { return state_; }
    const PortCounts &counts() const { return counts_; }
    size_t client_count() const;
    bool running() const { return device_ != nullptr; }
    void resize(ScreenSize size);
    void hang_up_all();
    void say(std::string_view bytes);

private:
    bool listen(std::string &error);
    struct Listener {
        Socket which;
        Fd fd = {};
        Watch watch = {};
    };

    // False when there is nobody to accept.
    bool accept(const Listener &listener);
    void attach(Socket which, Fd fd);
    Client &client_of(Socket which, pid_t process);
    void disconnect(Session &session);
    void poll_signals();
    void send_break();

    bool open_device(std::string &error);
    void close_device();
    // Input may be taken again, or no longer.
    void update_clients();
    void device_ended();
    void check_program_end();
    void read_device();
    void deliver(std::string_view bytes);
    void write_device();
    void update_flow();
    bool must_pause();

    Loop &loop_;
    const Options &program_options_;
    PortOptions options_;
    PortState state_;
    PortActions actions_;
    PortCounts counts_;
    bool shutting_down_ = false;

    Endpoint endpoint_;
    std::array<Listener, 3> listeners_{{{Socket::Control}, {Socket::Command}, {Socket::Data}}};
    Timer accept_timer_; // runs while there are no descriptors for more clients
    std::list<std::unique_ptr<Client>> clients_;
    std::list<std::unique_ptr<ControlConnection>> controls_;

    std::unique_ptr<Device> device_;
    Watch output_watch_, input_watch_;
    ByteQueue input_queue_; // while it holds bytes, no client is read
    bool paused_ = false;
    Timer lag_timer_;
    bool program_over_ = false;
    uint64_t output_at_check_ = 0;
    Timer end_timer_; // after the program's end, until its last output is there
    Timer break_timer_;
    Timer signal_timer_;
};

} // namespace sim
