#include "json_token.h"

#include <stdlib.h>
#include <string.h>

#include <json-c/json.h>

namespace trell {

namespace {

// A buffer that is larger is not kept for the next token.
constexpr size_t BUFFER_KEPT = 64u << 10;

// A text's bytes without quotes and escapes; they are the token's own where it has no escapes.
struct DecodedText {
    std::string_view bytes;
    struct json_object *owner;
    ~DecodedText() { json_object_put(owner); }
};

bool is_digit(char byte)
{
    return byte >= '0' && byte <= '9';
}

bool is_number_byte(char byte)
{
    return is_digit(byte) || byte == '-' || byte == '+' || byte == '.' || byte == 'e' ||
           byte == 'E';
}

Progress scan_text(TokenReader &reader, Input &input)
{
    if (reader.matched == 0) {
        reader.matched = 1;
        ++input.at;
    }
    while (input.at < input.end) {
        const char byte = *input.at++;
        if (byte == '\0') {
            return Progress::BAD;
        }
        if (reader.escaped) {
            reader.escaped = false;
        } else if (byte == '\\') {
            reader.escaped = true;
            reader.has_escapes = true;
        } else if (byte == '"') {
            return Progress::DONE;
        }
    }
    return Progress::MORE;
}

Progress scan_number(Input &input)
{
    while (input.at < input.end && is_number_byte(*input.at)) {
        ++input.at;
    }
    return input.at < input.end ? Progress::DONE : Progress::MORE;
}

Progress scan_literal(TokenReader &reader, Input &input)
{
    while (input.at < input.end && reader.literal[reader.matched] != '\0') {
        if (*input.at++ != reader.literal[reader.matched++]) {
            return Progress::BAD;
        }
    }
    return reader.literal[reader.matched] == '\0' ? Progress::DONE : Progress::MORE;
}

Progress scan(TokenReader &reader, Input &input)
{
    switch (reader.type) {
    case TokenType::TEXT:
        return scan_text(reader, input);
    case TokenType::NUMBER:
        return scan_number(input);
    case TokenType::LITERAL:
        return scan_literal(reader, input);
    default:
        return Progress::BAD;
    }
}

bool keep(TokenReader &reader, std::string_view part)
{
    const size_t needed = reader.begun_length + part.size();
    if (needed > reader.begun_capacity) {
        const size_t capacity = needed < 256 ? 256 : needed * 2;
        auto *begun = static_cast<char *>(realloc(reader.begun, capacity));
        if (begun == nullptr) {
            return false;
        }
        reader.begun = begun;
        reader.begun_capacity = capacity;
    }
    if (!part.empty()) {
        memcpy(reader.begun + reader.begun_length, part.data(), part.size());
    }
    reader.begun_length = needed;
    return true;
}

// json-c's reading of a token; null when it is malformed or memory is short.
struct json_object *decode(std::string_view token)
{
    struct json_tokener *tokener = json_tokener_new_ex(1);
    if (tokener == nullptr) {
        return nullptr;
    }
    json_tokener_set_flags(tokener, JSON_TOKENER_STRICT);
    struct json_object *decoded =
        json_tokener_parse_ex(tokener, token.data(), static_cast<int>(token.size()));
    if (json_tokener_get_error(tokener) == json_tokener_continue) {
        decoded = json_tokener_parse_ex(tokener, " ", 1); // the end of a number
    }
    json_tokener_free(tokener);
    return decoded;
}

bool decode_text(const TokenReader &reader, std::string_view token, DecodedText &text)
{
    if (!reader.has_escapes) {
        text.bytes = {token.data() + 1, token.size() - 2};
        return true;
    }
    text.owner = decode(token);
    if (text.owner == nullptr) {
        return false;
    }
    text.bytes = {json_object_get_string(text.owner),
                  static_cast<size_t>(json_object_get_string_len(text.owner))};
    return true;
}

// An integer of at most 18 digits, which is what nearly all numbers are.
bool read_short_integer(std::string_view token, int64_t &integer)
{
    const bool negative = token.front() == '-';
    token.remove_prefix(negative ? 1 : 0);
    if (token.empty() || token.size() > 18 || (token.front() == '0' && token.size() > 1)) {
        return false;
    }
    integer = 0;
    for (const char digit : token) {
        if (!is_digit(digit)) {
            return false;
        }
        integer = integer * 10 + (digit - '0');
    }
    integer = negative ? -integer : integer;
    return true;
}

struct node *number_value(std::string_view token)
{
    struct node *value = new_node(NodeType::INTEGER);
    if (value == nullptr || read_short_integer(token, value->integer)) {
        return value;
    }
    struct json_object *number = decode(token);
    if (number == nullptr) {
        node_free(value);
        return nullptr;
    }
    if (json_object_is_type(number, json_type_double)) {
        value->type = NodeType::REAL;
        value->real = json_object_get_double(number);
    } else {
        value->integer = json_object_get_int64(number);
    }
    json_object_put(number);
    return value;
}

struct node *text_value(const TokenReader &reader, std::string_view token)
{
    DecodedText text{};
    return decode_text(reader, token, text) ? new_text(text.bytes.data(), text.bytes.size())
                                            : nullptr;
}

struct node *literal_value(std::string_view token)
{
    struct node *value = new_node(token == "null" ? NodeType::EMPTY : NodeType::BOOLEAN);
    if (value != nullptr) {
        value->boolean = token == "true";
    }
    return value;
}

} // namespace

TokenType token_type(char first)
{
    switch (first) {
    case '"':
        return TokenType::TEXT;
    case 't':
    case 'f':
    case 'n':
        return TokenType::LITERAL;
    default:
        return first == '-' || is_digit(first) ? TokenType::NUMBER : TokenType::NONE;
    }
}

void token_start(TokenReader &reader, TokenType type, char first)
{
    reader.type = type;
    reader.literal = first == 't' ? "true" : first == 'f' ? "false" : "null";
    reader.matched = 0;
    reader.escaped = false;
    reader.has_escapes = false;
}

Progress token_take(TokenReader &reader, Input &input, std::string_view &token)
{
    const char *start = input.at;
    const Progress progress = scan(reader, input);
    token = {start, static_cast<size_t>(input.at - start)};
    // What is whole in one chunk, as most tokens are, is not copied.
    if (progress == Progress::BAD || (progress == Progress::DONE && reader.begun_length == 0)) {
        return progress;
    }
    if (!keep(reader, token)) {
        return Progress::BAD;
    }
    token = {reader.begun, reader.begun_length};
    return progress;
}

struct node *token_value(const TokenReader &reader, std::string_view token)
{
    switch (reader.type) {
    case TokenType::TEXT:
        return text_value(reader, token);
    case TokenType::NUMBER:
        return number_value(token);
    default:
        return literal_value(token);
    }
}

char *token_key(const TokenReader &reader, std::string_view token)
{
    DecodedText text{};
    return decode_text(reader, token, text) ? strndup(text.bytes.data(), text.bytes.size())
                                            : nullptr;
}

void token_end(TokenReader &reader)
{
    reader.type = TokenType::NONE;
    reader.begun_length = 0;
    if (reader.begun_capacity > BUFFER_KEPT) {
        token_reader_free(reader);
    }
}

void token_reader_free(TokenReader &reader)
{
    free(reader.begun);
    reader.begun = nullptr;
    reader.begun_capacity = 0;
}

} // namespace trell
