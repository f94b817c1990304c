#include "fuzz/requests.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>

#include "fuzz/outside.h"
#include "fuzz/require.h"
#include "processor/commands.h"

namespace {

using protocol::Effect;
using protocol::Layout;

std::size_t length_of_answer(const mensaje& request) {
    const protocol::Command& command = protocol::kCommands[request.comando];
    if (request.comando == protocol::command::configuration && request.longitud != 1)
        return 0;
    if (request.comando == protocol::command::configuration)
        return protocol::length(protocol::block_layout(request.info[0]));
    if (request.comando != protocol::command::write)
        return protocol::length(command.answer);
    const protocol::Subcommand* const row = subcommand_of(request);
    return protocol::length(row == nullptr ? Layout::refusal : row->answer);
}

void check_answer(const mensaje& request, const mensaje* answer) {
    REQUIRE((answer == nullptr) == (request.comando >= std::size(protocol::kCommands)));
    if (answer == nullptr)
        return;
    REQUIRE(answer->comando == request.comando);
    REQUIRE(answer->secuencia == 0);
    REQUIRE(answer->control == 0);
    REQUIRE(answer->longitud == length_of_answer(request));
    const std::size_t used = answer->longitud == 255 ? 0 : answer->longitud;
    REQUIRE(std::all_of(answer->info + used, std::end(answer->info),
                        [](std::uint8_t byte) { return byte == 0; }));
    const protocol::Subcommand* const row = subcommand_of(request);
    if (row != nullptr && used > 0)
        REQUIRE(answer->info[0] == row->code);
}

void check_outside(const mensaje& request) {
    const protocol::Subcommand* const row = subcommand_of(request);
    const Effect effect = row == nullptr ? Effect::alone : row->effect;
    const bool resets = effect == Effect::resets_network || effect == Effect::restores_factory;
    REQUIRE(outside.shells == (resets ? 1 : 0));
    REQUIRE(outside.clocks == (effect == Effect::sets_clock ? 1 : 0));
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

const protocol::Subcommand* subcommand_of(const mensaje& request) {
    if (request.comando != protocol::command::write || request.longitud < 2)
        return nullptr;
    return protocol::find_subcommand(request.info[0]);
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
