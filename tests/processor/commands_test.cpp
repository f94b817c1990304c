// Command dispatch, one record per case: which requests are answered, under which command code,
// and what is logged under which mask.
#include "processor/commands.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "link/mensaje.h"
#include "processor/conf_log.h"
#include "processor/identification.h"
#include "tests/processor/own_log.h"
#include "tests/processor/requests.h"
#include "tests/support/bytes.h"
#include "tests/support/open_board.h"

namespace {

using testing::ElementsAreArray;
using testing::IsEmpty;

const std::string kState = "<31>CMD: Peticion de estado o alarmas\n";
const std::string kBlock1 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 1.\n";
const std::string kBlock2 = "<31>CMD: Peticion de configuracion ID_PARAMETROS 2.\n";
const std::string kBadBlock = "<28>CMD: Peticion de configuracion de longitud incorrecta.\n";
const std::string kWrite = "<31>CMD: Comando escritura parametros.\n";
const std::string kIdentify = "<31>CMD: Peticion de identificacion\n";
const std::string kNotSupported = "<28>CMD: ERROR: comando no soportado\n";
const std::string kBadLength = "<28>Comando con longitud no esperada.\n";
const std::string kBadSubcommand = "<28>Comando - Subcomando no reconocido.\n";

struct Case {
    const char* name;
    std::uint8_t command;
    Bytes info;
    std::vector<std::string> log;
    int length;  // of the answer
};

const std::vector<Case> kAnswered = {
    {.name = "state", .command = 0, .info = {}, .log = {kState}, .length = 28},
    {.name = "state, info is not looked at",
     .command = 0,
     .info = {1, 2, 3},
     .log = {kState},
     .length = 28},
    {.name = "block 1", .command = 1, .info = {1}, .log = {kBlock1}, .length = 114},
    {.name = "block 2", .command = 1, .info = {2}, .log = {kBlock2}, .length = 185},
    {.name = "block 0 is block 1", .command = 1, .info = {0}, .log = {kBlock1}, .length = 114},
    {.name = "block 3 is block 1", .command = 1, .info = {3}, .log = {kBlock1}, .length = 114},
    {.name = "block 255 is block 1", .command = 1, .info = {255}, .log = {kBlock1}, .length = 114},
    {.name = "no block", .command = 1, .info = {}, .log = {kBadBlock}, .length = 0},
    {.name = "block 1 and more", .command = 1, .info = {1, 1}, .log = {kBadBlock}, .length = 0},
    {.name = "block 2 and more",
     .command = 1,
     .info = Bytes(255, 2),
     .log = {kBadBlock},
     .length = 0},
    {.name = "alarms", .command = 2, .info = {}, .log = {kState}, .length = 28},
    {.name = "alarms, info is not looked at",
     .command = 2,
     .info = {9},
     .log = {kState},
     .length = 28},
    {.name = "write of nothing",
     .command = 3,
     .info = {},
     .log = {kWrite, kBadLength},
     .length = 255},
    {.name = "write without value",
     .command = 3,
     .info = {1},
     .log = {kWrite, kBadLength},
     .length = 255},
    {.name = "write of sub-command 0",
     .command = 3,
     .info = {0, 1},
     .log = {kWrite, kBadSubcommand},
     .length = 255},
    {.name = "write of sub-command 255",
     .command = 3,
     .info = {255, 1},
     .log = {kWrite, kBadSubcommand},
     .length = 255},
    {.name = "write of sub-command 200, all bytes",
     .command = 3,
     .info = Bytes(255, 200),
     .log = {kWrite, kBadSubcommand},
     .length = 255},
    {.name = "write of a number",
     .command = 3,
     .info = {2, 77},
     .log = {kWrite, "<31>Subcomando Brillo ch1.\n"},
     .length = 0},
    {.name = "write of a text and more",
     .command = 3,
     .info = {38, 'T', 'V', 0, 3, 4, 5},
     .log = {kWrite, "<31>Subcomando SUBCOMMAND_PROVEEDOR\n"},
     .length = 0},
    {.name = "write of a text that fills the request",
     .command = 3,
     .info = Bytes(255, 38),
     .log = {kWrite, "<31>Subcomando SUBCOMMAND_PROVEEDOR\n"},
     .length = 0},
    {.name = "write that asks for an encoder",
     .command = 3,
     .info = Bytes(15, 106),
     .log = {kWrite, "<31>Subcomando SUBCOMMAND_GET_ENTRADAAV\n"},
     .length = 28},
    {.name = "write that has no name",
     .command = 3,
     .info = {111, 'M', 0},
     .log = {kWrite},
     .length = 15},
    {.name = "identification", .command = 4, .info = {}, .log = {kIdentify}, .length = 48},
    {.name = "identification, info is not looked at",
     .command = 4,
     .info = {4, 5, 6},
     .log = {kIdentify},
     .length = 48},
};

// On a board with its databases open, as the handlers may expect.
class Commands : public testing::Test {
  protected:
    Commands() { fill_identification(); }

    OpenBoard board_;
    OwnLog log_;
};

TEST_F(Commands, AreAnsweredUnderTheirOwnCodeInAZeroFilledRecord) {
    for (const Case& c : kAnswered) {
        SCOPED_TRACE(c.name);
        const std::unique_ptr<mensaje> answer = procesar_comando(request_of(c.command, c.info));
        ASSERT_NE(answer, nullptr);
        EXPECT_EQ(answer->comando, c.command);
        EXPECT_EQ(answer->secuencia, 0);
        EXPECT_EQ(answer->inicio, 0);
        EXPECT_EQ(answer->control, 0);
        EXPECT_EQ(to_hex(answer->cabecera), "00 00 00");
        EXPECT_EQ(answer->longitud, c.length);
        const auto* const end = std::end(answer->info);
        const auto* const tail = answer->info + answer->longitud;
        EXPECT_EQ(std::count(tail, end, 0), end - tail);
    }
}

TEST_F(Commands, RefuseAWriteWithZerosAlone) {
    for (const Bytes& info : {Bytes{}, Bytes{1}, Bytes{0, 1}, Bytes{255, 255}}) {
        const std::unique_ptr<mensaje> answer = procesar_comando(request_of(3, info));
        ASSERT_NE(answer, nullptr);
        EXPECT_EQ(to_hex(answer->info), to_hex(Bytes(255)));
    }
}

TEST_F(Commands, OfOtherCodesAreNotAnswered) {
    for (int command = 5; command <= 255; ++command) {
        SCOPED_TRACE(command);
        const auto code = static_cast<std::uint8_t>(command);
        EXPECT_EQ(procesar_comando(request_of(code, {})), nullptr);
        EXPECT_EQ(procesar_comando(request_of(code, {1, 2})), nullptr);
    }
}

// The code that counts is the decoded one; sequence and control of the request go nowhere.
TEST_F(Commands, TakeNothingButTheInfoFromTheRequest) {
    mensaje request = request_of(4, {});
    request.inicio = 0xA5;
    request.control = 0xB3;
    request.cabecera[0] = 1;
    request.cabecera[1] = 2;
    request.cabecera[2] = 3;
    request.checksum_rx = 4;
    request.crc8_rx = 5;
    request.secuencia = 3;
    const std::unique_ptr<mensaje> answer = procesar_comando(request);
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->comando, 4);
    EXPECT_EQ(answer->inicio, 0);
    EXPECT_EQ(answer->control, 0);
    EXPECT_EQ(to_hex(answer->cabecera), "00 00 00");
    EXPECT_EQ(answer->checksum_rx, 0);
    EXPECT_EQ(answer->crc8_rx, 0);
    EXPECT_EQ(answer->secuencia, 0);
}

TEST_F(Commands, AnswerEachRequestAlike) {
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(procesar_comando(request_of(1, {1}))->longitud, 114);
        EXPECT_EQ(procesar_comando(request_of(4, {}))->longitud, 48);
        EXPECT_EQ(procesar_comando(request_of(3, {2, 77}))->longitud, 0);
        EXPECT_EQ(procesar_comando(request_of(3, {}))->longitud, 255);
        EXPECT_EQ(procesar_comando(request_of(9, {})), nullptr);
    }
}

TEST_F(Commands, StateAndAlarmsAreOneCommand) {
    const std::unique_ptr<mensaje> state = procesar_comando(request_of(0, {}));
    const std::unique_ptr<mensaje> alarms = procesar_comando(request_of(2, {}));
    EXPECT_EQ(state->longitud, alarms->longitud);
    EXPECT_EQ(to_hex(state->info), to_hex(alarms->info));
}

TEST_F(Commands, AreLoggedUnderTheProtocolBitAlone) {
    std::vector<Case> cases = kAnswered;
    for (std::uint8_t code = 5; code <= 15; ++code)
        cases.push_back({.name = "other code",
                         .command = code,
                         .info = {},
                         .log = {kNotSupported},
                         .length = 0});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const mensaje request = request_of(c.command, c.info);
        for (const std::uint32_t mask : {0x40U, 0x7FU}) {
            conf_log = mask;
            procesar_comando(request);
            EXPECT_THAT(log_.take(), ElementsAreArray(c.log));
        }
        for (const std::uint32_t mask : {0U, 0x3FU, 0xFFFFFFBFU}) {
            conf_log = mask;
            procesar_comando(request);
            EXPECT_THAT(log_.take(), IsEmpty());
        }
    }
}

}  // namespace
