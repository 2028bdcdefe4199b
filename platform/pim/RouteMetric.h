// Metrics of unicast routes, as PIM compares them.
#pragma once

#include <compare>

#include "platform/base/Text.h"

namespace Routing {

// An ordered 32-bit route metric; prints as its number.
struct RouteMetric {
   uint32_t value = 0;
   auto operator<=>( const RouteMetric& ) const = default;
};

inline Mox::String valueToStrep( const RouteMetric& metric ) {
   return Mox::valueToStrep( metric.value );
}
inline void sequenceToValue( Mox::StringIter& begin, Mox::StringIter end,
                             RouteMetric& out ) {
   Mox::sequenceToValue( begin, end, out.value );
}
inline std::ostream& operator<<( std::ostream& stream, const RouteMetric& metric ) {
   return Mox::Detail::put( stream, valueToStrep( metric ) );
}

namespace Pim::Packet {

struct AssertMessage {
   // The 31-bit metric preference of an assert message (RFC 7761, 4.9.6), beside
   // its RPT bit.
   class AssertMetricPreference {
    public:
      static constexpr uint32_t min = 0;
      static constexpr uint32_t max = 0x7fffffff;

      constexpr AssertMetricPreference() = default;
      // Throws RangeError above max.
      constexpr AssertMetricPreference( uint32_t value ) : value_( value ) {
         if ( value > max ) {
            throw Mox::RangeError(
               "AssertMetricPreference::value < AssertMetricPreference::min or > "
               "AssertMetricPreference::max not allowed" );
         }
      }
      constexpr uint32_t value() const { return value_; }
      auto operator<=>( const AssertMetricPreference& ) const = default;

    private:
      uint32_t value_ = 0;
   };
};

inline std::ostream& operator<<(
   std::ostream& stream, const AssertMessage::AssertMetricPreference& preference ) {
   return Mox::Detail::put( stream, Mox::valueToStrep( preference.value() ) );
}

}
}
