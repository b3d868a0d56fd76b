// Sessions that are up for as long as a figure takes, and what is measured of them in turns.
#pragma once

#include "bench/measure.h"
#include "bench/stats.h"

constexpr int ROUNDS = 7;
constexpr double MEGABYTE = 1e6;

inline void bring_up(Session &session)
{
    std::string seen;
    session.connect(seen);
    // Their own last words.
    if (session.program == Program::BASIC) {
        wait_for_text(session, "Connected to port", seen);
    } else if (session.program == Program::PICOCOM) {
        wait_for_text(session, "Terminal ready", seen);
    }
    session.settle();
}

// A session of a program, up and settled.
struct Contender {
    explicit Contender(Program program, Output output = Output::TERMINAL, Size size = SMALL)
        : session(program, output, size)
    {
        bring_up(session);
    }

    Session session;
    // Round by round, of what was measured last.
    std::vector<double> speeds{};         // MB/s
    std::vector<double> processor{};      // seconds per MB
    std::vector<double> shown_per_byte{}; // bytes to the terminal for each from the port

    void note(const Transfer &transfer)
    {
        const double megabytes = double(transfer.sent) / MEGABYTE;
        speeds.push_back(megabytes / transfer.seconds);
        processor.push_back(transfer.processor_seconds / megabytes);
        shown_per_byte.push_back(double(transfer.shown) / double(transfer.sent));
    }
    void forget()
    {
        speeds.clear();
        processor.clear();
        shown_per_byte.clear();
    }
};
