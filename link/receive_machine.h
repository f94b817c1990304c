// The receive machine takes a frame byte by byte, removes the stuffing, stores the frame.
// It reads nothing itself and checks no code.
#pragma once

#include <cstddef>
#include <cstdint>

class ReceiveMachine {
  public:
    enum class State : std::uint8_t {
        WAITING_START,
        READING_HEADER,
        READING_INFO,
        READING_CHECKSUM,
        READING_CRC,
        TRAMA_RECIBIDA,
    };

    // `record` is the 265 bytes of a mensaje, borrowed for the machine's life.
    explicit ReceiveMachine(std::uint8_t* record) : record_(record) {}

    // Takes the next byte off the wire. Returns true when it completed the frame; feed no more
    // then.
    bool feed(std::uint8_t byte);

    [[nodiscard]] State state() const { return state_; }
    // Returns the number of bytes of the frame stored so far.
    [[nodiscard]] std::size_t stored() const { return index_; }
    // Returns the offset of the last info byte, known once the length byte is stored.
    [[nodiscard]] std::size_t data_end() const { return data_end_; }

  private:
    [[nodiscard]] bool in_crc8_mode() const;

    std::uint8_t* record_;
    State state_ = State::WAITING_START;
    std::size_t index_ = 0;
    std::size_t data_end_ = 0;
    bool may_be_doubled_ = false;  // the last stored byte may be the first of a doubled 0xA5
};
