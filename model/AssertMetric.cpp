#include "model/AssertMetric.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>

#include "platform/base/Assert.h"

namespace Routing::Pim::SparseMode {
namespace {

using Mox::StringIter;

// The items of "[%c] %s [%u/%u]", read one by one; `matches` counts them.
struct MetricText {
   int matches = 0;
   char letter = 0;
   Mox::StringView address;
   uint64_t preference = std::numeric_limits<uint64_t>::max();
   uint32_t metric = 0;

   void read( StringIter& begin, StringIter end ) {
      if ( !Mox::acceptLiteral( begin, end, "[" ) ) return;
      StringIter bracket = std::find( begin, end, ']' );
      if ( bracket - begin != 1 ) return;
      letter = *begin;
      begin = bracket;
      ++matches;
      if ( !Mox::acceptLiteral( begin, end, "] " ) ) return;
      StringIter blank = std::find( begin, end, ' ' );
      if ( blank == begin ) return;
      address = { begin, static_cast<size_t>( blank - begin ) };
      begin = blank;
      ++matches;
      if ( !Mox::acceptLiteral( begin, end, " [" ) || !digit( begin, end ) ) return;
      // A preference that fits no word keeps the initial value, which exceeds the
      // limit.
      begin = std::from_chars( begin, end, preference ).ptr;
      ++matches;
      if ( !Mox::acceptLiteral( begin, end, "/" ) || !digit( begin, end ) ) return;
      Mox::sequenceToValue( begin, end, metric );
      ++matches;
   }

   static bool digit( StringIter begin, StringIter end ) {
      return begin != end && *begin >= '0' && *begin <= '9';
   }
};

}

bool AssertMetric::operator<( const AssertMetric& other ) const {
   if ( rptBit != other.rptBit ) return !rptBit;
   if ( preference != other.preference ) return preference < other.preference;
   if ( metric != other.metric ) return metric < other.metric;
   return other.address < address;
}

Mox::String valueToStrep( const AssertMetric& metric ) {
   return fmt::format( "[{}] {} [{}/{}]", metric.rptBit ? 'R' : 'S',
                       valueToStrep( metric.address ), metric.preference.value(),
                       metric.metric.value );
}

bool hasMetricItems( Mox::StringView text ) {
   MetricText items;
   StringIter begin = text.data();
   items.read( begin, begin + text.size() );
   return items.matches == 4;
}

void sequenceToValue( StringIter& begin, StringIter end, AssertMetric& out ) {
   MetricText text;
   text.read( begin, end );
   int matches = text.matches;
   MOX_ASSERT( matches == 4 );
   Mox::expectLiteral( begin, end, "]" );
   constexpr uint64_t kBeyond = AssertMetric::Preference::max + 1ULL;
   out.rptBit = text.letter != 'S';
   out.preference = static_cast<uint32_t>( std::min( text.preference, kBeyond ) );
   out.metric = { text.metric };
   out.address = Mox::stringToValue<Vantu::IpGenAddr>( text.address );
}

AssertState AssertStateInstance( uint32_t number ) {
   return Mox::enumInstance<AssertState>( number );
}

AssertState AssertStateInstance( const Mox::String& name ) {
   return Mox::enumInstance<AssertState>( name );
}

}
