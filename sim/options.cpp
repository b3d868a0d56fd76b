#include "sim/options.h"

#include <algorithm>

namespace sim {
namespace {

using Text = const std::string &;

bool set_kind(PortOptions &port, PortKind kind, Text target)
{
    port.kinds++;
    port.kind = kind;
    port.target = target;
    return true;
}

bool is_key(Text key)
{
    // ".." would lead out of the run directory.
    return !key.empty() && key.front() != '/' &&
           ("/" + key + "/").find("/../") == std::string::npos;
}

bool add_port(Options &options, Text key)
{
    bool known = std::ranges::any_of(options.ports, [&](auto &port) { return port.key == key; });
    options.ports.emplace_back().key = key;
    return !known && is_key(key);
}

// An option of the whole program or, with set_port, of the port named before it. The value is empty
// for one without.
struct Option {
    const char *name;
    bool has_value;
    bool (*set)(Options &options, Text value);
    bool (*set_port)(PortOptions &port, Text value) = nullptr;
    PortKind only_for = PortKind::Unknown; // Unknown: for any port
};

constexpr auto PROGRAM = PortKind::Program;
constexpr auto SERIAL = PortKind::Serial;

const Option OPTIONS[] = {
    {"help", false, [](Options &o, Text) { return o.help = true; }},
    {"version", false, [](Options &o, Text) { return o.version = true; }},
    {"run-dir", true, [](Options &o, Text v) { return o.run_directory = v, !v.empty(); }},
    {"mode", true,
     [](Options &o, Text v) { return parse_number(v, 0, 0777, o.socket_mode.emplace(), 8); }},
    {"background", false, [](Options &o, Text) { return o.background = true; }},
    {"control", true, [](Options &o, Text v) { return o.control_key = v, is_key(v); }},
    {"port", true, add_port},

    {"exec", true, nullptr, [](PortOptions &p, Text v) { return set_kind(p, PROGRAM, v); }},
    {"device", true, nullptr, [](PortOptions &p, Text v) { return set_kind(p, SERIAL, v); }},
    {"loopback", false, nullptr,
     [](PortOptions &p, Text v) { return set_kind(p, PortKind::LoopBack, v); }},
    {"size", true, nullptr, [](PortOptions &p, Text v) { return parse_size(v, p.size); }, PROGRAM},
    {"term", true, nullptr, [](PortOptions &p, Text v) { return p.term = v, !v.empty(); }, PROGRAM},
    {"baud", true, nullptr, [](PortOptions &p, Text v) { return parse_baud(v, p.line); }, SERIAL},
    {"format", true, nullptr, [](PortOptions &p, Text v) { return parse_format(v, p.line); },
     SERIAL},
    {"flow", true, nullptr, [](PortOptions &p, Text v) { return parse_flow(v, p.line); }, SERIAL},
    {"label", true, nullptr, [](PortOptions &p, Text v) { return p.label = v, true; }},
    {"info", true, nullptr, [](PortOptions &p, Text v) { return p.info = v, true; }},
    {"escape", true, nullptr, [](PortOptions &p, Text v) { return parse_escape(v, p.escape); }},
    {"signals", true, nullptr, [](PortOptions &p, Text v) { return parse_signals(v, p.signals); }},
    {"outlet", true, nullptr, [](PortOptions &p, Text v) { return p.outlets.push_back(v), true; }},
    {"history", true, nullptr,
     [](PortOptions &p, Text v) { return parse_number(v, 0, 10'000'000, p.history); }},
};

bool apply(Options &options, const Option &option, Text value, std::string &error)
{
    std::string name = std::string("--") + option.name;
    error = "bad value '" + value + "' for " + name;
    if (option.set != nullptr) {
        return option.set(options, value);
    }
    if (options.ports.empty()) {
        error = name + " needs a --port before it";
        return false;
    }
    PortOptions &port = options.ports.back();
    if (option.only_for != PortKind::Unknown) {
        port.bound[name] = option.only_for;
    }
    return option.set_port(port, value);
}

bool check(const Options &options, std::string &error)
{
    error.clear();
    if (options.help || options.version) {
        return true;
    }
    if (!options.control_key.empty()) {
        if (options.background || options.socket_mode || !options.ports.empty()) {
            error = "of the options only --run-dir goes with --control";
        } else if (options.control_lines.empty()) {
            error = "--control needs a line behind the key";
        }
        return error.empty();
    }
    if (options.ports.empty()) {
        error = "no --port given";
    }
    for (const PortOptions &port : options.ports) {
        if (port.kinds != 1) {
            error = "port " + port.key + ": exactly one of --exec, --device, --loopback is needed";
        }
        for (const auto &[name, kind] : port.bound) {
            if (port.kind != kind && error.empty()) {
                error = "port " + port.key + ": " + name + " goes with " +
                        (kind == PROGRAM ? "--exec" : "--device") + " only";
            }
        }
    }
    return error.empty();
}

} // namespace

bool parse_options(const std::vector<std::string> &arguments, Options &options, std::string &error)
{
    for (size_t i = 0; i < arguments.size(); i++) {
        Text argument = arguments[i];
        if (!argument.starts_with("--")) {
            if (options.control_key.empty()) {
                error = "unexpected argument '" + argument + "'";
                return false;
            }
            options.control_lines.push_back(argument);
            continue;
        }
        auto equals = argument.find('=');
        bool has_value = equals != std::string::npos;
        std::string name = argument.substr(0, equals);
        std::string value = has_value ? argument.substr(equals + 1) : "";
        auto option = std::ranges::find(OPTIONS, name.substr(2), &Option::name);
        if (option == std::end(OPTIONS)) {
            error = "unknown option " + name;
            return false;
        }
        if (option->has_value && !has_value && i + 1 < arguments.size()) {
            value = arguments[++i];
            has_value = true;
        }
        if (option->has_value != has_value) {
            error = name + (has_value ? " takes no value" : " needs a value");
            return false;
        }
        if (!apply(options, *option, value, error)) {
            return false;
        }
    }
    return check(options, error);
}

} // namespace sim
