// Requests to the processor in the test's own process.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>

#include "link/mensaje.h"
#include "processor/commands.h"
#include "tests/support/bytes.h"

// A request as it arrives in normal mode: the checksum behind the info, zeros behind that. The
// text of a request that is not ended runs on into it.
inline mensaje request_of(std::uint8_t command, const Bytes& info) {
    mensaje request{};
    request.inicio = 0xA5;
    request.control = command;
    request.comando = command;
    request.longitud = static_cast<std::uint8_t>(info.size());
    std::copy(info.begin(), info.end(), request.info);
    unsigned sum = command + static_cast<unsigned>(info.size());
    for (const std::uint8_t byte : info)
        sum += byte;
    const auto checksum = static_cast<std::uint8_t>(0U - sum);
    frame_area(request)[kInfoOffset + info.size()] = checksum;
    request.checksum_rx = checksum;
    return request;
}

// The info of the answer. Fails the test when the answer is not one to that command with zeros
// behind its info.
inline Bytes answer_to(const mensaje& request) {
    const std::unique_ptr<mensaje> answer = procesar_comando(request);
    EXPECT_NE(answer, nullptr);
    if (!answer)
        return {};
    EXPECT_EQ(answer->comando, request.comando);
    EXPECT_EQ(answer->secuencia, 0);
    const auto info = std::span<const std::uint8_t>(answer->info);
    const auto sent = info.first(answer->longitud);
    const auto behind = info.subspan(answer->longitud);
    EXPECT_TRUE(std::all_of(behind.begin(), behind.end(), [](auto byte) { return byte == 0; }));
    return {sent.begin(), sent.end()};
}

inline Bytes answer_to(std::uint8_t command, const Bytes& info) {
    return answer_to(request_of(command, info));
}
