// SPDX-FileCopyrightText: 2026 the DORVY driver developers
// SPDX-License-Identifier: MIT
//
// Mutations of a stream behind a first line. Half of them are libFuzzer's own; the other half change,
// repeat or drop one message as a whole, so that those behind it can still be read.
//
// Source: LLVM documentation, libFuzzer (user-supplied mutators).
#include "fuzz/messages.h"

#include <algorithm>
#include <cstdint>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t mostSize);

namespace {

using Random = std::minstd_rand;

std::string mutatedBody(const std::string &message)
{
    constexpr size_t Growth = 64;
    std::string body = message.substr(HeaderBytes);
    const size_t size = body.size();
    body.resize(size + Growth);
    body.resize(LLVMFuzzerMutate(reinterpret_cast<uint8_t *>(&body[0]), size, body.size()));
    return body;
}

void mutate(std::vector<std::string> &messages, Random &random)
{
    const auto any = [&random](size_t count) { return static_cast<long>(random() % count); };
    const auto chosen = messages.begin() + any(messages.size());
    switch (any(4)) {
    case 0:
        messages.erase(chosen);
        return;
    case 1:
        messages.insert(messages.begin() + any(messages.size() + 1), std::string(*chosen));
        return;
    default:
        *chosen = makeMessage(chosen->front(), mutatedBody(*chosen));
        return;
    }
}

// The input with one of its messages changed; empty if it has none.
std::string mutated(const std::string &input, Random &random)
{
    const size_t line = std::min(input.find('\n'), input.size() - 1) + 1;
    std::vector<std::string> messages = wholeMessages(input.substr(line));
    if (messages.empty()) {
        return std::string();
    }
    size_t rest = line;
    for (const std::string &message : messages) {
        rest += message.size();
    }
    mutate(messages, random);
    std::string output = input.substr(0, line);
    for (const std::string &message : messages) {
        output += message;
    }
    return output + input.substr(rest);
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t mostSize,
                                          unsigned int seed)
{
    Random random(seed);
    const std::string input(reinterpret_cast<const char *>(data), size);
    const std::string output = random() % 2 && size > 0 ? mutated(input, random) : std::string();
    if (output.empty() || output.size() > mostSize) {
        return LLVMFuzzerMutate(data, size, mostSize);
    }
    std::copy(output.begin(), output.end(), data);
    return output.size();
}
