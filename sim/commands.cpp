#include "sim/commands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>

namespace sim {
namespace {

void add(json_object *object, const char *key, json_object *value)
{
    json_object_object_add(object, key, value);
}

void set_user(PortState &port, Session &asker, const json_object *request)
{
    json_object *arguments = nullptr;
    json_object_object_get_ex(request, "args", &arguments);
    if (!json_object_is_type(arguments, json_type_object)) {
        return;
    }
    asker.announced = true;
    asker.username = member_text(arguments, "username");
    asker.right = member_text(arguments, "right");
    asker.protocol = member_text(arguments, "protocol");
    asker.remote_address = member_text(arguments, "remote_addr");

    std::string line = asker.username;
    if (!asker.protocol.empty()) {
        line += " through " + asker.protocol;
    }
    if (!asker.remote_address.empty()) {
        line += " from " + asker.remote_address;
    }
    port.history.event(LineType::Login, line, now_milliseconds());
}

std::string users(const PortState &port)
{
    std::string names;
    for (const Session &session : port.sessions) {
        if (!session.counts()) {
            continue;
        }
        if (!names.empty()) {
            names += ", ";
        }
        names += session.display_name();
    }
    return names;
}

void port_info(PortState &port, json_object *reply)
{
    add(reply, "label", json_string(port.label));
    add(reply, "users", json_string(users(port)));
    add(reply, "info", json_string(port.info));
    add(reply, "escape", json_object_new_int(port.escape));
    json_object *signals = json_object_new_object();
    for (auto [name, line] : SIGNAL_NAMES) {
        add(signals, name, json_object_new_boolean(port.signals.*line));
    }
    add(reply, "signals", signals);
    if (port.outlets.empty()) {
        return;
    }
    json_object *outlets = json_object_new_array();
    for (const std::string &outlet : port.outlets) {
        json_object_array_add(outlets, json_string(outlet));
    }
    add(reply, "outlets", outlets);
}

json_object *seconds_since(Clock::time_point start)
{
    double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::array<char, 32> text;
    snprintf(text.data(), text.size(), "%.3f", seconds);
    return json_object_new_double_s(seconds, text.data());
}

void list_sessions(const PortState &port, const Session &asker, json_object *reply)
{
    json_object *sessions = json_object_new_array();
    for (const Session &session : port.sessions) {
        if (&session == &asker || !session.counts()) {
            continue;
        }
        json_object *element = json_object_new_object();
        add(element, "username", json_string(session.display_name()));
        add(element, "session_time", seconds_since(session.since));
        add(element, "protocol",
            json_string(session.protocol.empty() ? "unknown" : session.protocol));
        if (!session.remote_address.empty()) {
            add(element, "remote_addr", json_string(session.remote_address));
        }
        json_object_array_add(sessions, element);
    }
    add(reply, "sessions", sessions);
}

void disconnect_sessions(PortState &port, Session &asker, const PortActions &actions)
{
    for (Session &session : port.sessions) {
        if (&session == &asker || !session.counts()) {
            continue;
        }
        port.history.event(LineType::Kick,
                           session.display_name() + " disconnected by " + asker.display_name(),
                           now_milliseconds());
        if (actions.disconnect) {
            actions.disconnect(session);
        }
    }
}

void serial_break(PortState &port, const Session &asker, const PortActions &actions)
{
    port.history.event(LineType::Signal, "BREAK sent by " + asker.display_name(),
                       now_milliseconds());
    if (actions.send_break) {
        actions.send_break();
    }
}

void scrollback(const PortState &port, json_object *reply)
{
    json_object *lines = json_object_new_array();
    for (size_t i = 0; i < port.history.size(); i++) {
        const HistoryLine &line = port.history.newest(i);
        json_object *element = json_object_new_object();
        add(element, "line", json_string(line.text));
        add(element, "timestamp", json_object_new_int64(line.timestamp));
        add(element, "scrollback_idx", json_object_new_int64(line.index));
        add(element, "type", json_object_new_int(static_cast<int>(line.type)));
        json_object_array_add(lines, element);
    }
    add(reply, "scrollback", lines);
}

} // namespace

int64_t now_milliseconds()
{
    auto since_epoch = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<milliseconds>(since_epoch).count();
}

void change_signals(PortState &port, const Signals &signals)
{
    for (auto [name, line] : SIGNAL_NAMES) {
        if (port.signals.*line != signals.*line) {
            std::string text = name;
            std::ranges::transform(text, text.begin(), toupper);
            port.history.event(LineType::Signal, text + (signals.*line ? " on" : " off"),
                               now_milliseconds());
        }
    }
    port.signals = signals;
}

std::string answer(PortState &port, Session &asker, const json_object *request,
                   const PortActions &actions)
{
    Json reply(json_object_new_object());
    std::string command = member_text(request, "cmd");
    if (command == "SET_USER") {
        set_user(port, asker, request);
    } else if (command == "PORT_INFO") {
        if (actions.read_signals) {
            actions.read_signals();
        }
        port_info(port, reply.get());
    } else if (command == "LIST_SESSIONS") {
        list_sessions(port, asker, reply.get());
    } else if (command == "DISCONNECT_SESSIONS") {
        disconnect_sessions(port, asker, actions);
    } else if (command == "BREAK") {
        serial_break(port, asker, actions);
    } else if (command == "SCROLLBACK") {
        scrollback(port, reply.get());
    }
    return to_text(reply.get());
}

} // namespace sim
