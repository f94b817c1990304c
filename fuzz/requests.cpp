#include "fuzz/requests.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "fuzz/outside.h"
#include "fuzz/require.h"
#include "processor/commands.h"

namespace {

// Of the answers to a parameter write.
std::size_t written_length(const mensaje& request) {
    if (subcommand_of(request) == nullptr)
        return 255;
    switch (request.info[0]) {
        case 105:
            return 3;
        case 106:
            return 28;
        case 109:
            return 2;
        case 110:
            return 75;
        case 111:
            return 15;
        default:
            return 0;
    }
}

std::size_t length_of_answer(const mensaje& request) {
    switch (request.comando) {
        case 1:
            if (request.longitud != 1)
                return 0;
            return request.info[0] == 2 ? 185 : 114;
        case 3:
            return written_length(request);
        case 4:
            return 48;
        default:
            return 28;
    }
}

void check_answer(const mensaje& request, const mensaje* answer) {
    REQUIRE((answer == nullptr) == (request.comando >= 5));
    if (answer == nullptr)
        return;
    REQUIRE(answer->comando == request.comando);
    REQUIRE(answer->secuencia == 0);
    REQUIRE(answer->control == 0);
    REQUIRE(answer->longitud == length_of_answer(request));
    const std::size_t used = answer->longitud == 255 ? 0 : answer->longitud;
    REQUIRE(std::all_of(answer->info + used, std::end(answer->info),
                        [](std::uint8_t byte) { return byte == 0; }));
    const Subcommand* const row = subcommand_of(request);
    if (row != nullptr && used > 0)
        REQUIRE(answer->info[0] == row->code);
}

void check_outside(const mensaje& request) {
    const Subcommand* const row = subcommand_of(request);
    const int code = row == nullptr ? 0 : row->code;
    const bool resets = code == 68 || code == 69 || code == 70 || code == 80;
    REQUIRE(outside.shells == (resets ? 1 : 0));
    REQUIRE(outside.clocks == (code == 72 || code == 73 ? 1 : 0));
}

}  // namespace

std::unique_ptr<const mensaje> read_request(Input& input) {
    constexpr std::uint8_t kBehind = 0x80;
    auto request = std::make_unique<mensaje>();
    const std::uint8_t command = input.byte();
    request->longitud = input.byte();
    std::uint8_t* const info = frame_area(*request) + kInfoOffset;
    input.copy(info, request->longitud);
    if ((command & kBehind) != 0) {
        const std::size_t room = sizeof(mensaje) - kInfoOffset - request->longitud;
        input.copy(info + request->longitud, std::min<std::size_t>(input.byte(), room));
    }
    request->comando = command & ~kBehind & 0xFF;
    return request;
}

const Subcommand* subcommand_of(const mensaje& request) {
    constexpr std::uint8_t kWrite = 3;
    if (request.comando != kWrite || request.longitud < 2)
        return nullptr;
    for (const Subcommand& row : subcommands()) {
        if (row.code == request.info[0])
            return &row;
    }
    return nullptr;
}

std::unique_ptr<const mensaje> carry_out(const mensaje& request) {
    outside.shells = 0;
    outside.clocks = 0;
    in_the_processor = true;
    std::unique_ptr<const mensaje> answer = procesar_comando(request);
    in_the_processor = false;
    check_answer(request, answer.get());
    check_outside(request);
    return answer;
}
