#include "json_token.h"

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

namespace trell {

namespace {

// A buffer that is larger is not kept for the next token.
constexpr size_t BUFFER_KEPT = 64u << 10;

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
    if (needed >= reader.begun_capacity) {
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
    reader.begun[needed] = '\0';
    reader.begun_length = needed;
    return true;
}

// The four hexadecimal digits at text; -1 where there are none.
int32_t read_hex4(const char *text)
{
    int32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        const char digit = text[i];
        const char letter = static_cast<char>(digit | 0x20);
        if (!is_digit(digit) && (letter < 'a' || letter > 'f')) {
            return -1;
        }
        value = value * 16 + (is_digit(digit) ? digit - '0' : letter - 'a' + 10);
    }
    return value;
}

char *append_utf8(char *to, int32_t character)
{
    const int more = character < 0x80 ? 0 : character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr int LEADS[] = {0, 0xc0, 0xe0, 0xf0};
    *to++ = static_cast<char>(LEADS[more] | character >> 6 * more);
    for (int left = more - 1; left >= 0; --left) {
        *to++ = static_cast<char>(0x80 | (character >> 6 * left & 0x3f));
    }
    return to;
}

// The character of the digits behind "\\u" at from, which goes past them: of a pair of surrogates
// the one that they stand for, of half a pair U+FFFD. -1 where the digits are malformed.
int32_t read_code_point(const char *&from)
{
    const int32_t first = read_hex4(from);
    from += 4;
    if (first < 0xd800 || first >= 0xe000) {
        return first;
    }
    const bool pair = first < 0xdc00 && from[0] == '\\' && from[1] == 'u';
    const int32_t second = pair ? read_hex4(from + 2) : -1;
    if (second < 0xdc00 || second >= 0xe000) {
        return 0xfffd;
    }
    from += 6;
    return 0x10000 + ((first - 0xd800) << 10) + (second - 0xdc00);
}

// Decodes the escapes of a text in its place: no escape is shorter than what it stands for. False
// when one is malformed.
bool unescape(char *text)
{
    constexpr const char *LETTERS = "\"\\/bfnrt";
    constexpr const char *MEANINGS = "\"\\/\b\f\n\r\t";
    char *to = text;
    for (const char *from = text; *from != '\0';) {
        if (*from != '\\') {
            *to++ = *from++;
            continue;
        }
        const char kind = from[1];
        from += 2;
        if (kind == 'u') {
            const int32_t character = read_code_point(from);
            if (character < 0) {
                return false;
            }
            to = append_utf8(to, character);
        } else if (const char *letter = strchr(LETTERS, kind)) {
            *to++ = MEANINGS[letter - LETTERS];
        } else {
            return false;
        }
    }
    *to = '\0';
    return true;
}

std::string_view without_quotes(std::string_view token)
{
    return {token.data() + 1, token.size() - 2};
}

size_t count_digits(std::string_view text)
{
    size_t count = 0;
    while (count < text.size() && is_digit(text[count])) {
        ++count;
    }
    return count;
}

// Whether the bytes, all of them such as numbers have, are a number; is_real tells of which kind.
bool is_number(std::string_view token, bool &is_real)
{
    is_real = false;
    token.remove_prefix(token.front() == '-' ? 1 : 0);
    size_t digits = count_digits(token);
    if (digits == 0 || (digits > 1 && token.front() == '0')) {
        return false;
    }
    token.remove_prefix(digits);
    if (!token.empty() && token.front() == '.') {
        token.remove_prefix(1);
        digits = count_digits(token);
        token.remove_prefix(digits);
        is_real = true;
    }
    if (digits > 0 && !token.empty() && (token.front() | 0x20) == 'e') {
        token.remove_prefix(1);
        const bool is_signed = !token.empty() && (token.front() == '+' || token.front() == '-');
        token.remove_prefix(is_signed ? 1 : 0);
        digits = count_digits(token);
        token.remove_prefix(digits);
        is_real = true;
    }
    return digits > 0 && token.empty();
}

// What does not fit becomes the least or the greatest integer.
int64_t read_integer(std::string_view token)
{
    const bool negative = token.front() == '-';
    token.remove_prefix(negative ? 1 : 0);
    int64_t value = 0; // with its sign changed: there is one more on that side
    for (const char digit : token) {
        if (__builtin_mul_overflow(value, 10, &value) ||
            __builtin_sub_overflow(value, digit - '0', &value)) {
            return negative ? INT64_MIN : INT64_MAX;
        }
    }
    return negative ? value : value == INT64_MIN ? INT64_MAX : -value;
}

struct node *number_value(std::string_view token)
{
    bool is_real;
    if (!is_number(token, is_real)) {
        return nullptr;
    }
    struct node *value = new_node(is_real ? NodeType::REAL : NodeType::INTEGER);
    if (value != nullptr && is_real) {
        value->real = strtod(token.data(), nullptr); // ends with the token, in the C locale
    } else if (value != nullptr) {
        value->integer = read_integer(token);
    }
    return value;
}

struct node *text_value(const TokenReader &reader, std::string_view token)
{
    const std::string_view text = without_quotes(token);
    struct node *value = new_text(text.data(), text.size());
    if (value != nullptr && reader.has_escapes && !unescape(text_of(*value))) {
        node_free(value);
        return nullptr;
    }
    return value;
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
    const std::string_view text = without_quotes(token);
    char *key = strndup(text.data(), text.size());
    if (key != nullptr && reader.has_escapes && !unescape(key)) {
        free(key);
        return nullptr;
    }
    return key;
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
