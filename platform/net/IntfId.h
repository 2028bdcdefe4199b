// An interface, identified by its name.
//
// Four bytes: the number under which this process knows the name. The number means
// nothing elsewhere; records of shared tables hold the name itself. Empty means
// none. Equal names are equal ids; order is by name. Text: quoted, with escapes.
//
// Event-loop thread only. A name once known stays known while the process lives.
#pragma once

#include <compare>
#include <cstddef>
#include <cstdint>
#include <iosfwd>

#include "platform/base/Export.h"
#include "platform/base/Text.h"

namespace Vantu {

class PIMSM_API IntfId {
 public:
   static constexpr size_t maxLength = 31;

   // No interface.
   constexpr IntfId() = default;
   // Throws RangeError for a name of more than 31 bytes or with a NUL, which table
   // records cannot hold. The empty name means no interface.
   explicit IntfId( Mox::StringView name );

   bool empty() const { return index_ == 0; }

   // Valid while the process lives.
   Mox::StringView name() const;

   size_t hash() const { return index_ * UINT64_C( 0x9e3779b97f4a7c15 ); }

   friend bool operator==( const IntfId&, const IntfId& ) = default;
   friend std::strong_ordering operator<=>( const IntfId& a, const IntfId& b ) {
      if ( a.index_ == b.index_ ) return std::strong_ordering::equal;
      return a.name() <=> b.name();
   }

 private:
   uint32_t index_ = 0;
};

static_assert( sizeof( IntfId ) == 4 );

PIMSM_API Mox::String valueToStrep( const IntfId& intf );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                IntfId& out );
PIMSM_API std::ostream& operator<<( std::ostream& stream, const IntfId& intf );

inline size_t hash_value( const IntfId& intf ) {
   return intf.hash();
}

}

template <>
struct std::hash<Vantu::IntfId> {
   size_t operator()( const Vantu::IntfId& intf ) const noexcept {
      return intf.hash();
   }
};
