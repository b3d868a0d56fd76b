// The tokens of JSON text that are longer than a byte, read from chunks that may cut them anywhere.
#pragma once

#include <stddef.h>

#include <string_view>

#include "node.h"

namespace trell {

// Bytes not owned, and how far they are used up.
struct Input {
    const char *at;
    const char *end;
};

enum class TokenType { NONE, TEXT, NUMBER, LITERAL };

enum class Progress { MORE, DONE, BAD };

// The token being read; zero-filled there is none.
struct TokenReader {
    TokenType type;
    const char *literal; // that the token must be
    size_t matched;      // bytes taken of it, or whether a text's opening quote was
    bool escaped;        // in a text: a backslash came just before
    bool has_escapes;    // in a text
    char *begun;         // owned; what earlier chunks brought of the token, and a NUL
    size_t begun_length;
    size_t begun_capacity;
};

// The type of the token that begins with the byte, NONE where none does.
TokenType token_type(char first);

// Begins a token of the type; its first byte is still to be taken.
void token_start(TokenReader &reader, TokenType type, char first);

// Takes what the input has of the token. DONE gives all of it, a text with its quotes, valid as
// long as the input and until token_end; a byte follows that does not belong to it. A number is
// done when such a byte comes, the others with their last byte. BAD is malformed text or a lack of
// memory.
Progress token_take(TokenReader &reader, Input &input, std::string_view &token);

// What a token that is done stands for, owned by the caller, who frees the key, that of a text,
// with free. Null when the token is malformed or memory is short.
struct node *token_value(const TokenReader &reader, std::string_view token);
char *token_key(const TokenReader &reader, std::string_view token);

// Forgets the token; token_reader_free also what is kept for the next one.
void token_end(TokenReader &reader);
void token_reader_free(TokenReader &reader);

} // namespace trell
