#include "sim/options.h"

#include <algorithm>
#include <climits>

namespace sim {
namespace {

using Text = const std::string &;

bool set_kind(PortOptions &port, PortKind kind, Text target)
{
    bool first = port.kind == PortKind::Unknown;
    port.kind = kind;
    port.target = target;
    return first;
}

bool set_reply(PortOptions &port, Text value)
{
    auto equals = value.find('=');
    if (equals == std::string::npos || equals == 0) {
        return false;
    }
    port.replies[value.substr(0, equals)] = value.substr(equals + 1);
    return true;
}

bool is_key(Text key)
{
    // ".." would lead out of the run directory.
    return !key.empty() && key.front() != '/' &&
           ("/" + key + "/").find("/../") == std::string::npos;
}

// An option of the whole program; value is empty for one without.
struct GlobalOption {
    const char *name;
    bool has_value;
    bool (*apply)(Options &options, Text value);
};

const GlobalOption GLOBAL_OPTIONS[] = {
    {"help", false, [](Options &o, Text) { return o.help = true; }},
    {"run-dir", true, [](Options &o, Text v) { return o.run_directory = v, !v.empty(); }},
    {"mode", true,
     [](Options &o, Text v) { return parse_number(v, 0, 0777, o.socket_mode.emplace(), 8); }},
    {"ready-fd", true, [](Options &o, Text v) { return parse_number(v, 0, INT_MAX, o.ready_fd); }},
    {"background", false, [](Options &o, Text) { return o.background = true; }},
    {"once", false, [](Options &o, Text) { return o.once = true; }},
    {"control", true, [](Options &o, Text v) { return o.control_key = v, is_key(v); }},
    {"port", true,
     [](Options &o, Text v) {
         bool known = std::ranges::any_of(o.ports, [&](auto &port) { return port.key == v; });
         o.ports.emplace_back().key = v;
         return !known && is_key(v);
     }},
};

// An option of the port named before it.
struct PortOption {
    const char *name;
    bool has_value;
    bool (*apply)(PortOptions &port, Text value);
};

constexpr ptrdiff_t KIND_OPTIONS = 5; // the first ones say what is behind the port

const PortOption PORT_OPTIONS[] = {
    {"exec", true, [](PortOptions &p, Text v) { return set_kind(p, PortKind::Program, v); }},
    {"device", true, [](PortOptions &p, Text v) { return set_kind(p, PortKind::Serial, v); }},
    {"loopback", false, [](PortOptions &p, Text v) { return set_kind(p, PortKind::LoopBack, v); }},
    {"source", true, [](PortOptions &p, Text v) { return set_kind(p, PortKind::Source, v); }},
    {"sink", false, [](PortOptions &p, Text v) { return set_kind(p, PortKind::Sink, v); }},
    {"size", true, [](PortOptions &p, Text v) { return parse_size(v, p.size); }},
    {"term", true, [](PortOptions &p, Text v) { return p.term = v, !v.empty(); }},
    {"start-now", false, [](PortOptions &p, Text) { return p.start_now = true; }},
    {"baud", true, [](PortOptions &p, Text v) { return parse_baud(v, p.line); }},
    {"format", true, [](PortOptions &p, Text v) { return parse_format(v, p.line); }},
    {"flow", true, [](PortOptions &p, Text v) { return parse_flow(v, p.line); }},
    {"repeat", true, [](PortOptions &p, Text v) { return parse_number(v, 0, UINT_MAX, p.repeat); }},
    {"stay", false, [](PortOptions &p, Text) { return p.stay = true; }},
    {"capture", true, [](PortOptions &p, Text v) { return p.capture = v, !v.empty(); }},
    {"label", true, [](PortOptions &p, Text v) { return p.label = v, true; }},
    {"info", true, [](PortOptions &p, Text v) { return p.info = v, true; }},
    {"escape", true, [](PortOptions &p, Text v) { return parse_escape(v, p.escape); }},
    {"signals", true, [](PortOptions &p, Text v) { return parse_signals(v, p.signals); }},
    {"outlet", true, [](PortOptions &p, Text v) { return p.outlets.push_back(v), true; }},
    {"history", true,
     [](PortOptions &p, Text v) { return parse_number(v, 0, 10'000'000, p.history); }},
    {"buffer", true,
     [](PortOptions &p, Text v) { return parse_number(v, 1, INT_MAX, p.client_buffer); }},
    {"reply", true, set_reply},
};

// One argument, with its value taken from behind "=" or from the next argument.
struct Argument {
    std::string name;
    std::string value;
    bool has_value = false;
};

bool apply_fault(PortOptions &port, const Argument &argument, std::string &error)
{
    std::string name = argument.name.substr(std::string("fault-").size());
    return parse_fault(port.faults, name, argument.value, error);
}

bool takes_value(const std::string &name)
{
    auto named = [&](const auto &option) { return option.name == name; };
    if (auto found = std::ranges::find_if(GLOBAL_OPTIONS, named);
        found != std::end(GLOBAL_OPTIONS)) {
        return found->has_value;
    }
    if (auto found = std::ranges::find_if(PORT_OPTIONS, named); found != std::end(PORT_OPTIONS)) {
        return found->has_value;
    }
    return name.starts_with("fault-") && name != "fault-mute";
}

bool apply(Options &options, const Argument &argument, std::string &error)
{
    auto named = [&](const auto &option) { return option.name == argument.name; };
    std::string bad = "bad value '" + argument.value + "' for --" + argument.name;
    if (auto found = std::ranges::find_if(GLOBAL_OPTIONS, named);
        found != std::end(GLOBAL_OPTIONS)) {
        if (found->apply(options, argument.value)) {
            return true;
        }
        error = bad;
        return false;
    }
    auto found = std::ranges::find_if(PORT_OPTIONS, named);
    bool fault = argument.name.starts_with("fault-");
    if (!fault && found == std::end(PORT_OPTIONS)) {
        error = "unknown option --" + argument.name;
        return false;
    }
    if (options.ports.empty()) {
        error = "--" + argument.name + " needs a --port before it";
        return false;
    }
    if (fault) {
        return apply_fault(options.ports.back(), argument, error);
    }
    if (found->apply(options.ports.back(), argument.value)) {
        return true;
    }
    error = found - PORT_OPTIONS < KIND_OPTIONS
                ? "port " + options.ports.back().key + " has two things behind it"
                : bad;
    return false;
}

bool check(const Options &options, std::string &error)
{
    if (options.help || !options.control_key.empty()) {
        return true;
    }
    if (options.ports.empty()) {
        error = "no --port given";
    }
    for (const PortOptions &port : options.ports) {
        if (port.kind == PortKind::Unknown) {
            error = "port " + port.key +
                    ": one of --exec, --device, --loopback, --source, --sink is needed";
        }
    }
    return error.empty();
}

} // namespace

bool parse_options(const std::vector<std::string> &arguments, Options &options, std::string &error)
{
    for (size_t i = 0; i < arguments.size(); i++) {
        Argument argument{arguments[i]};
        if (!argument.name.starts_with("--")) {
            if (!options.control_key.empty()) {
                options.control_lines.push_back(argument.name);
                continue;
            }
            error = "unexpected argument '" + argument.name + "'";
            return false;
        }
        argument.name.erase(0, 2);
        if (auto equals = argument.name.find('='); equals != std::string::npos) {
            argument.value = argument.name.substr(equals + 1);
            argument.name.resize(equals);
            argument.has_value = true;
        }
        if (takes_value(argument.name) != argument.has_value) {
            if (argument.has_value || ++i == arguments.size()) {
                error = "--" + argument.name +
                        (argument.has_value ? " takes no value" : " needs a value");
                return false;
            }
            argument.value = arguments[i];
        }
        if (!apply(options, argument, error)) {
            return false;
        }
    }
    return check(options, error);
}

} // namespace sim
