#include "json_token.h"

#include <stdlib.h>

using namespace trell;

namespace {

// Limits of one value: the length of its texts, numbers and literals, and the memory of its nodes.
// Replies of 16 MB are to be had, and take up to 100 MB as a long port history; the worst of texts,
// "[[],[],...", would take 30 times its length.
constexpr size_t MAX_TEXT = 17u << 20;
constexpr size_t MAX_MEMORY = 128u << 20;
// What malloc keeps with each block, rounding included.
constexpr size_t BLOCK_OVERHEAD = 16;

enum class Expect { VALUE, VALUE_OR_END, KEY, KEY_OR_END, COLON, COMMA_OR_END };

} // namespace

struct json_stream {
    void (*on_value)(struct node *value, void *context);
    void *context;
    TokenReader tokens;
    // The arrays and objects around the place reached; the first one holds them all.
    Container *open[MAX_DEPTH];
    size_t depth;
    Expect expect;
    char *key; // owned; of the member whose value comes next
    size_t text_length;
    size_t memory;
};

namespace {

void start_value(struct json_stream &stream)
{
    stream.depth = 0;
    stream.expect = Expect::VALUE;
    stream.text_length = 0;
    stream.memory = 0;
}

void drop_value(struct json_stream &stream)
{
    if (stream.depth > 0) {
        node_free(&stream.open[0]->node);
    }
    free(stream.key);
    stream.key = nullptr;
    token_end(stream.tokens);
    start_value(stream);
}

void deliver(struct json_stream &stream, struct node *value)
{
    start_value(stream);
    stream.on_value(value, stream.context);
}

NodeType innermost(const struct json_stream &stream)
{
    return stream.open[stream.depth - 1]->node.type;
}

// Counts a block of memory; false when the value has become too large.
bool charge(struct json_stream &stream, size_t size)
{
    stream.memory += size + BLOCK_OVERHEAD;
    return stream.memory <= MAX_MEMORY;
}

// Puts a new value into the innermost array or object.
void attach(struct json_stream &stream, struct node *value)
{
    value->key = stream.key;
    stream.key = nullptr;
    append(*stream.open[stream.depth - 1], value);
    stream.expect = Expect::COMMA_OR_END;
}

bool expects_value(const struct json_stream &stream)
{
    return stream.expect == Expect::VALUE || stream.expect == Expect::VALUE_OR_END;
}

bool expects_key(const struct json_stream &stream)
{
    return stream.expect == Expect::KEY || stream.expect == Expect::KEY_OR_END;
}

bool open_container(struct json_stream &stream, NodeType type)
{
    if (!expects_value(stream) || stream.depth == MAX_DEPTH || !charge(stream, sizeof(Container))) {
        return false;
    }
    struct node *created = new_node(type);
    if (created == nullptr) {
        return false;
    }
    if (stream.depth > 0) {
        attach(stream, created);
    }
    stream.open[stream.depth++] = container_of(created, type);
    stream.expect = type == NodeType::ARRAY ? Expect::VALUE_OR_END : Expect::KEY_OR_END;
    return true;
}

bool close_container(struct json_stream &stream, NodeType type)
{
    const Expect while_empty = type == NodeType::ARRAY ? Expect::VALUE_OR_END : Expect::KEY_OR_END;
    if (stream.depth == 0 || innermost(stream) != type ||
        (stream.expect != while_empty && stream.expect != Expect::COMMA_OR_END)) {
        return false;
    }
    struct node *closed = &stream.open[--stream.depth]->node;
    stream.expect = Expect::COMMA_OR_END;
    if (stream.depth == 0) {
        deliver(stream, closed);
    }
    return true;
}

bool take_comma(struct json_stream &stream)
{
    const bool expected = stream.expect == Expect::COMMA_OR_END;
    if (expected) {
        stream.expect = innermost(stream) == NodeType::ARRAY ? Expect::VALUE : Expect::KEY;
    }
    return expected;
}

bool take_colon(struct json_stream &stream)
{
    const bool expected = stream.expect == Expect::COLON;
    stream.expect = Expect::VALUE;
    return expected;
}

bool start_token(struct json_stream &stream, char first)
{
    const TokenType type = token_type(first);
    if (!expects_value(stream) && !(type == TokenType::TEXT && expects_key(stream))) {
        return false;
    }
    token_start(stream.tokens, type, first);
    return type != TokenType::NONE;
}

// Takes a byte between tokens, or begins a token with it.
bool take_structure(struct json_stream &stream, Input &input)
{
    switch (*input.at++) {
    case ' ':
    case '\t':
    case '\r':
    case '\n':
        return true;
    case '{':
        return open_container(stream, NodeType::OBJECT);
    case '}':
        return close_container(stream, NodeType::OBJECT);
    case '[':
        return open_container(stream, NodeType::ARRAY);
    case ']':
        return close_container(stream, NodeType::ARRAY);
    case ',':
        return take_comma(stream);
    case ':':
        return take_colon(stream);
    default:
        return start_token(stream, *--input.at);
    }
}

bool add_key(struct json_stream &stream, std::string_view token)
{
    stream.key = token_key(stream.tokens, token);
    stream.expect = Expect::COLON;
    token_end(stream.tokens);
    return stream.key != nullptr;
}

bool add_scalar(struct json_stream &stream, std::string_view token)
{
    struct node *value =
        charge(stream, sizeof(struct node)) ? token_value(stream.tokens, token) : nullptr;
    token_end(stream.tokens);
    if (value != nullptr && stream.depth > 0) {
        attach(stream, value);
    } else if (value != nullptr) {
        deliver(stream, value);
    }
    return value != nullptr;
}

bool take_token(struct json_stream &stream, Input &input)
{
    const char *start = input.at;
    std::string_view token;
    const Progress progress = token_take(stream.tokens, input, token);
    stream.text_length += static_cast<size_t>(input.at - start);
    if (progress == Progress::BAD || stream.text_length > MAX_TEXT) {
        return false;
    }
    if (progress == Progress::MORE) {
        return true;
    }
    return charge(stream, token.size()) &&
           (expects_key(stream) ? add_key(stream, token) : add_scalar(stream, token));
}

} // namespace

struct json_stream *json_stream_new(void (*on_value)(struct node *value, void *context),
                                    void *context)
{
    auto *stream = static_cast<struct json_stream *>(calloc(1, sizeof(struct json_stream)));
    if (stream != nullptr) {
        stream->on_value = on_value;
        stream->context = context;
        start_value(*stream);
    }
    return stream;
}

bool json_stream_parse(struct json_stream *stream, const char *bytes, size_t length)
{
    Input input{bytes, bytes + length};
    while (input.at < input.end) {
        const bool taken = stream->tokens.type == TokenType::NONE ? take_structure(*stream, input)
                                                                  : take_token(*stream, input);
        if (!taken) {
            drop_value(*stream);
            return false;
        }
    }
    return true;
}

void json_stream_free(struct json_stream *stream)
{
    if (stream != nullptr) {
        drop_value(*stream);
        token_reader_free(stream->tokens);
        free(stream);
    }
}
