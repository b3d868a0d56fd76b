// What a JSON stream delivers, as text.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "dep/trell.h"

inline std::string text_of(const struct node *value)
{
    char *text = json_stringify(value, 1);
    std::string copy = text != nullptr ? text : "(none)";
    free(text);
    return copy;
}

struct Parsed {
    std::vector<struct node *> values;
    struct json_stream *stream = json_stream_new(
        [](struct node *value, void *context) {
            static_cast<Parsed *>(context)->values.push_back(value);
        },
        this);

    Parsed() = default;
    explicit Parsed(std::string_view text) { feed(text); }
    Parsed(const Parsed &) = delete;
    ~Parsed()
    {
        clear();
        json_stream_free(stream);
    }
    bool feed(std::string_view chunk)
    {
        return json_stream_parse(stream, chunk.data(), chunk.size());
    }
    void clear()
    {
        for (struct node *value : values) {
            node_free(value);
        }
        values.clear();
    }
    // The values since the last call, each with a ";".
    std::string take()
    {
        std::string texts;
        for (const struct node *value : values) {
            texts += text_of(value) + ";";
        }
        clear();
        return texts;
    }
};
