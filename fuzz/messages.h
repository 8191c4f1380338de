// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// A stream of bytes as messages of the protocol.
//
// Source: PostgreSQL protocol 3.0, message formats.
#ifndef MESSAGES_H
#define MESSAGES_H

#include <string>
#include <vector>

constexpr size_t LengthBytes = 4; // the length word, which counts itself but not the type byte
constexpr size_t HeaderBytes = 5; // the type byte and the length word

inline size_t messageLength(const std::string &stream, size_t at)
{
    size_t length = 0;
    for (size_t i = at + 1; i < at + HeaderBytes; ++i) {
        length = length << 8 | static_cast<unsigned char>(stream[i]);
    }
    return length;
}

/*! The messages that \a stream begins with, up to the first that cannot be one or is not whole. */
inline std::vector<std::string> wholeMessages(const std::string &stream)
{
    std::vector<std::string> messages;
    size_t at = 0;
    while (at + HeaderBytes <= stream.size()) {
        const size_t length = messageLength(stream, at);
        if (length < LengthBytes || length >= stream.size() - at) {
            break;
        }
        messages.push_back(stream.substr(at, 1 + length));
        at += 1 + length;
    }
    return messages;
}

/*! A message of \a type with the right length word. */
inline std::string makeMessage(char type, const std::string &body)
{
    const size_t length = LengthBytes + body.size();
    std::string message(1, type);
    for (int shift = 24; shift >= 0; shift -= 8) {
        message += static_cast<char>(length >> shift & 0xFF);
    }
    return message + body;
}

#endif // MESSAGES_H
