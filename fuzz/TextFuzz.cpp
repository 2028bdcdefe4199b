// Every text parser. The first byte chooses the type, the rest is its text. The
// value of an accepted text must print as a text that reads as the same value.

#include <cmath>
#include <string>

#include "export/Records.h"
#include "fuzz/Check.h"
#include "model/Status.h"
#include "platform/base/Assert.h"
#include "platform/net/IpGenPrefix.h"

namespace {

namespace Pim = Routing::Pim;
namespace Sm = Routing::Pim::SparseMode;

struct Asserted {};
void throwAsserted( const char*, const char*, int ) {
   throw Asserted();
}

bool same( double a, double b ) {
   return a == b || ( std::isnan( a ) && std::isnan( b ) );
}
template <class T>
bool same( const T& a, const T& b ) {
   return a == b;
}

template <class T>
void roundTrip( const std::string& text ) {
   using Mox::valueToStrep;
   T value{};
   try {
      value = Mox::stringToValue<T>( text );
   } catch ( const Mox::ParseError& ) {
      return;
   } catch ( const Mox::RangeError& ) {
      return;
   } catch ( const Asserted& ) {  // only assert metrics
      return;
   }
   FUZZ_CHECK( same( Mox::stringToValue<T>( valueToStrep( value ) ), value ) );
}

using Parser = void ( * )( const std::string& );
const Parser kParsers[] = { roundTrip<bool>,
                            roundTrip<uint8_t>,
                            roundTrip<uint64_t>,
                            roundTrip<int32_t>,
                            roundTrip<double>,
                            roundTrip<Mox::String>,
                            roundTrip<Vantu::IpGenAddr>,
                            roundTrip<Vantu::IpGenPrefix>,
                            roundTrip<Vantu::IntfId>,
                            roundTrip<L3::VrfName>,
                            roundTrip<Pim::RouteKey>,
                            roundTrip<Pim::RouteIntfKey>,
                            roundTrip<Pim::Rpf>,
                            roundTrip<Pim::IntfAddr>,
                            roundTrip<Sm::ChangeFlags>,
                            roundTrip<Sm::IntfChangeFlags>,
                            roundTrip<Sm::Route::RouteFlags>,
                            roundTrip<Sm::Route::ExpiredFlags>,
                            roundTrip<Sm::Route::IifSwitchState>,
                            roundTrip<Sm::UpRptState>,
                            roundTrip<Sm::Intf::RptState>,
                            roundTrip<Sm::AssertMetric>,
                            roundTrip<Sm::AssertInfo>,
                            roundTrip<Sm::Brane::Route>,
                            roundTrip<Sm::Brane::Intf>,
                            roundTrip<Sm::Brane::RouteCounter> };

}

extern "C" int LLVMFuzzerTestOneInput( const uint8_t* data, size_t size ) {
   static const auto handler = Mox::assertionHandlerIs( throwAsserted );
   static_cast<void>( handler );
   if ( size == 0 ) return 0;
   kParsers[data[0] % std::size( kParsers )](
      std::string( reinterpret_cast<const char*>( data + 1 ), size - 1 ) );
   return 0;
}
