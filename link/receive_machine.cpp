#include "link/receive_machine.h"

#include "link/mensaje.h"

bool ReceiveMachine::feed(std::uint8_t byte) {
    if (state_ == State::WAITING_START) {
        if (byte == kStartByte) {
            // The start byte leaves may_be_doubled_ down: the control byte is never doubled, so
            // a 0xA5 behind the start is a control byte of its own.
            record_[index_++] = byte;
            state_ = State::READING_HEADER;
        }
        return false;
    }
    if (byte == kStartByte && may_be_doubled_ && record_[index_ - 1] == kStartByte) {
        may_be_doubled_ = false;
        return false;
    }
    record_[index_] = byte;
    switch (state_) {
        case State::READING_HEADER:
            if (index_ == kLengthOffset) {
                data_end_ = kLengthOffset + byte;
                state_ = byte != 0 ? State::READING_INFO : State::READING_CHECKSUM;
            }
            break;
        case State::READING_INFO:
            if (index_ == data_end_)
                state_ = State::READING_CHECKSUM;
            break;
        case State::READING_CHECKSUM:
            record_[kChecksumRxOffset] = byte;
            state_ = in_crc8_mode() ? State::READING_CRC : State::TRAMA_RECIBIDA;
            break;
        case State::READING_CRC:
            record_[kCrc8RxOffset] = byte;
            state_ = State::TRAMA_RECIBIDA;
            break;
        case State::WAITING_START:
        case State::TRAMA_RECIBIDA:
            break;
    }
    ++index_;
    may_be_doubled_ = true;
    return state_ == State::TRAMA_RECIBIDA;
}

bool ReceiveMachine::in_crc8_mode() const {
    return (record_[kControlOffset] & kCrc8ModeBit) != 0;
}
