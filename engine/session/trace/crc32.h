// session/trace/crc32.h: CRC-32 (reflected, polynomial 0x04C11DB7).
#ifndef QUORVANE_ENGINE_SESSION_TRACE_CRC32_H_
#define QUORVANE_ENGINE_SESSION_TRACE_CRC32_H_

#include <cstddef>
#include <cstdint>

#include "platform/com/com.h"

namespace quorvane {

std::uint32_t Crc32(const void* bytes, size_t size) noexcept;

// Of the bytes of a text in UTF-16, without its terminator; null counts as empty. For detail lines.
std::uint32_t CrcOfText(BSTR text) noexcept;

}  // namespace quorvane

#endif  // QUORVANE_ENGINE_SESSION_TRACE_CRC32_H_
