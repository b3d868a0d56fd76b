#include "bench/stats.h"

#include <algorithm>

double percentile(std::vector<double> values, double percent)
{
    if (values.empty()) {
        return 0;
    }
    std::sort(values.begin(), values.end());
    const auto index = static_cast<size_t>(percent / 100 * double(values.size() - 1) + 0.5);
    return values[index];
}

double median(const std::vector<double> &values)
{
    return percentile(values, 50);
}

std::vector<std::vector<double>> in_turns(int rounds, const std::vector<Measurement> &contenders)
{
    std::vector<std::vector<double>> values(contenders.size());
    for (int round = 0; round < rounds; round++) {
        for (size_t i = 0; i < contenders.size(); i++) {
            values[i].push_back(contenders[i]());
        }
    }
    return values;
}

double ratio(const std::vector<double> &a, const std::vector<double> &b)
{
    std::vector<double> ratios;
    for (size_t i = 0; i < a.size() && i < b.size(); i++) {
        ratios.push_back(a[i] / b[i]);
    }
    return median(ratios);
}
