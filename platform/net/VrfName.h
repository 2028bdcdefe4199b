// The name of a VRF, 100 bytes at most. Text: quoted, with escapes; a stream gets
// the bare name.
#pragma once

#include <compare>
#include <cstddef>
#include <iosfwd>

#include "platform/base/Export.h"
#include "platform/base/Text.h"

namespace L3 {

class PIMSM_API VrfName {
 public:
   static constexpr size_t maxLength = 100;

   VrfName() = default;
   // Throws RangeError when the name is too long.
   explicit VrfName( Mox::StringView name );

   const Mox::String& name() const { return name_; }
   bool empty() const { return name_.empty(); }
   size_t hash() const { return std::hash<Mox::String>()( name_ ); }

   friend auto operator<=>( const VrfName&, const VrfName& ) = default;

 private:
   Mox::String name_;
};

PIMSM_API Mox::String valueToStrep( const VrfName& vrf );
PIMSM_API void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                                VrfName& out );
PIMSM_API std::ostream& operator<<( std::ostream& stream, const VrfName& vrf );

inline size_t hash_value( const VrfName& vrf ) {
   return vrf.hash();
}

}

template <>
struct std::hash<L3::VrfName> {
   size_t operator()( const L3::VrfName& vrf ) const noexcept { return vrf.hash(); }
};
