#include "apps/store/Untrusted.h"

#include <cstddef>

namespace Fleet {

// Brackets in strings do not count: a name may have many.
bool isTooDeep( std::string_view json ) {
   constexpr int kDeepest = 16;
   int depth = 0;
   bool quoted = false;
   for ( size_t i = 0; i < json.size(); ++i ) {
      const char letter = json[i];
      if ( quoted && letter == '\\' ) {
         ++i;
      } else if ( letter == '"' ) {
         quoted = !quoted;
      } else if ( !quoted && ( letter == '[' || letter == '{' ) ) {
         if ( ++depth > kDeepest ) return true;
      } else if ( !quoted && ( letter == ']' || letter == '}' ) ) {
         --depth;
      }
   }
   return false;
}

}
