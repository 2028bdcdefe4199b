// Numbers on the wire, for decoders and encoders.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Router {

// RFC 3376, 4 and 7.2; RFC 2710, 3.1; RFC 3810, 5.
constexpr uint8_t igmpQuery = 0x11;
constexpr uint8_t igmpReport1 = 0x12;
constexpr uint8_t igmpReport2 = 0x16;
constexpr uint8_t igmpLeave = 0x17;
constexpr uint8_t igmpReport3 = 0x22;
constexpr uint8_t mldQuery = 130;
constexpr uint8_t mldReport1 = 131;
constexpr uint8_t mldDone = 132;
constexpr uint8_t mldReport2 = 143;

// Options of a hello (RFC 7761, 4.9.2).
constexpr uint16_t helloHoldtime = 1;
constexpr uint16_t helloLanPruneDelay = 2;
constexpr uint16_t helloDrPriority = 19;
constexpr uint16_t helloGenerationId = 20;
constexpr uint16_t helloAddressList = 24;

// The sizes of a register's header and of the part under its checksum, in bytes.
constexpr size_t registerHeader = 8;

}
