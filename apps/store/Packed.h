// A text that is kept for long and seldom read, in little room: values say much the same
// of each interface.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace Fleet {

class Packed {
 public:
   Packed() = default;  // the empty text
   // REQUIRES: a text of less than 1 GB. About 2 ns a byte.
   explicit Packed( std::string_view text );

   std::string text() const;

 private:
   std::unique_ptr<char[]> bytes_;
   uint32_t size_ = 0;    // of the text
   uint32_t packed_ = 0;  // as many as the text has: it is not packed
};

}
