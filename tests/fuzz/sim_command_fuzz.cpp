// Fuzz entry: the simulator's command parser. The first byte is the size of the chunks in which the
// rest arrives; whatever the chunks, a request is found at most once for each byte.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>

#include <string_view>

#include "sim/command_parser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size < 2) {
        return 0;
    }
    const size_t chunk = data[0] + size_t{1};
    const std::string_view bytes(reinterpret_cast<const char *>(data + 1), size - 1);
    sim::CommandParser parser;
    size_t requests = 0;
    for (size_t at = 0; at < bytes.size(); at += chunk) {
        parser.push(bytes.substr(at, chunk));
        sim::Json request;
        while (parser.next(request)) {
            requests++;
        }
    }
    if (requests > bytes.size()) {
        abort();
    }
    return 0;
}
