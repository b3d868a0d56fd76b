// Medians, percentiles, and contenders measured in turns.
#pragma once

#include <functional>
#include <vector>

// 0 for no values.
double percentile(std::vector<double> values, double percent);
double median(const std::vector<double> &values);

using Measurement = std::function<double()>;
// A B C A B C ...: the values of each contender, round by round.
std::vector<std::vector<double>> in_turns(int rounds, const std::vector<Measurement> &contenders);

// The median over the rounds of a / b, so that what slows a whole round down does not count.
double ratio(const std::vector<double> &a, const std::vector<double> &b);
