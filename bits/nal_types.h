// H.264 NAL unit types, named once for the whole library.
#pragma once

#include <cstdint>

namespace qrv::nal {

constexpr uint8_t kUnspecified = 0;
constexpr uint8_t kSliceNonIdr = 1; // slices are types 1 to 5
constexpr uint8_t kSliceIdr = 5;
constexpr uint8_t kSei = 6;
constexpr uint8_t kSps = 7;
constexpr uint8_t kPps = 8;
constexpr uint8_t kAccessUnitDelimiter = 9;
constexpr uint8_t kSpsExtension = 13;
constexpr uint8_t kSliceExtension = 20;

// nal_unit_type of a unit's header byte.
constexpr uint8_t typeOf(uint8_t header) { return header & 0x1F; }

constexpr bool isSlice(uint8_t type) { return type >= kSliceNonIdr && type <= kSliceIdr; }

} // namespace qrv::nal
