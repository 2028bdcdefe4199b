#include "model/Derivation.h"

#include <fmt/format.h>

#include <boost/algorithm/string/erase.hpp>

#include "model/detail/Recording.h"

namespace Routing::Pim::SparseMode {

namespace Detail {

namespace {

template <class Enum>
Texts otherNames( Enum stored ) {
   Texts others;
   for ( Mox::StringView name : enumNames( stored ).values ) {
      if ( name != stringValue( stored ) ) others.emplace_back( name );
   }
   return others;
}

// The texts of those values that differ from `stored`.
template <class T>
Texts others( const T& stored, const std::vector<T>& values ) {
   Texts texts;
   for ( const T& value : values ) {
      Mox::String text = valueToStrep( value );
      bool known = std::find( texts.begin(), texts.end(), text ) != texts.end();
      if ( !( value == stored ) && !known ) texts.push_back( text );
   }
   return texts;
}

// The address that wins against every other of its family.
Vantu::IpGenAddr highest( Vantu::AddressFamily family ) {
   std::array<uint8_t, Vantu::IpGenAddr::maxBytes> bytes;
   bytes.fill( 0xff );
   return Vantu::IpGenAddr::fromBytes( family, bytes.data() );
}

}

Mox::String words( Mox::StringView source ) {
   Mox::String text( source );
   for ( const char* noise : { "at( intf, shared ).", "at( intf ).", "()" } )
      boost::algorithm::erase_all( text, noise );
   return text;
}

Texts alternatives( const Intf&, Intf::JoinState stored, Vantu::IntfId ) {
   return otherNames( stored );
}

Texts alternatives( const Intf&, Intf::RptState stored, Vantu::IntfId ) {
   return otherNames( stored );
}

Texts alternatives( const Route&, UpJoinState stored, Vantu::IntfId ) {
   return otherNames( stored );
}

Texts alternatives( const Intf& subject, const AssertMetric& stored,
                    Vantu::IntfId ) {
   const Route* route = subject.parentRoute();
   Vantu::AddressFamily family =
      route != nullptr ? route->key().group.family() : Vantu::AddressFamily::ipv4;
   return others<AssertMetric>( stored,
                                { {},
                                  { false, 0, { 0 }, subject.myIp() },
                                  { false, 0, { 0 }, highest( family ) } } );
}

Texts alternatives( const Route& subject, const Routing::Pim::Rpf& stored,
                    Vantu::IntfId asked ) {
   std::vector<Routing::Pim::Rpf> values{ {}, subject.rpfWc(), subject.rpf() };
   if ( !asked.empty() ) {
      values.push_back( stored );
      values.back().intfId = asked;
   }
   return others( stored, values );
}

Texts alternatives( const Route&, Route::IifSwitchState stored, Vantu::IntfId ) {
   return otherNames( stored );
}

Texts alternatives( const Route&, const Vantu::IntfId& stored,
                    Vantu::IntfId asked ) {
   return others<Vantu::IntfId>( stored, { {}, asked } );
}

Texts alternatives( const Vantu::IntfId&, const IntfAddr& stored, Vantu::IntfId ) {
   return others<IntfAddr>( stored, { {} } );
}

}

namespace {

using Detail::answerText;

// The macros about an interface, ASK( rules, name, arguments ). The SG macros
// assert that the route is an (S,G) one.
// clang-format off
#define PIMSM_INTF_MACROS( WC, SG ) \
   WC( IntfRules, myIp, ) WC( IntfRules, iAmDr, ) \
   WC( IntfRules, joinsWc, ) WC( IntfRules, joinsSg, ) WC( IntfRules, joinsWcRp, ) \
   WC( IntfRules, prunesSgRpt, ) \
   WC( IntfRules, includeWc, ) WC( IntfRules, includeSg, ) \
   WC( SgIntfRules, excludeSg, ) WC( SgIntfRules, includeSgFastFailover, ) \
   WC( IntfRules, immediateOlistWcRp, ) WC( IntfRules, immediateOlistWc, ) \
   WC( IntfRules, immediateOlistSg, ) \
   WC( SgIntfRules, inheritedOlistSgRpt, ) WC( SgIntfRules, inheritedOlistSg, ) \
   WC( SgIntfRules, inOlist, ) WC( SgIntfRules, forwardDesired, ) \
   WC( SgIntfRules, fastForwardDesired, ) \
   WC( IntfRules, couldAssertWc, ) SG( SgIntfRules, couldAssertSg, ) \
   WC( IntfRules, assertTrackingDesiredWc, ) SG( SgIntfRules, assertTrackingDesiredSg, ) \
   WC( IntfRules, lostAssertWc, ) WC( IntfRules, lostAssertSg, ) \
   WC( SgIntfRules, lostAssertSgRpt, ) \
   WC( IntfRules, sptAssertMetric, ) WC( IntfRules, rptAssertMetric, ) \
   WC( IntfRules, myAssertMetricWc, ) SG( SgIntfRules, myAssertMetricSg, ) \
   WC( IntfRules, isPreferredAssertWc, arguments.received ) \
   WC( IntfRules, isPreferredAssertSg, arguments.received ) \
   WC( IntfRules, isAcceptableAssertWc, arguments.received ) \
   SG( SgIntfRules, isAcceptableAssertSg, arguments.received ) \
   WC( IntfRules, isInferiorAssertWc, arguments.received ) \
   SG( SgIntfRules, isInferiorAssertSg, arguments.received )

#define PIMSM_ROUTE_MACROS( ASK ) \
   ASK( RouteRules, nullImmediateOlistWcRp, ) ASK( RouteRules, nullImmediateOlistWc, ) \
   ASK( RouteRules, nullImmediateOlistSg, ) \
   ASK( RouteRules, nullInheritedOlistSg, ) ASK( RouteRules, nullInheritedOlistSgRpt, ) \
   ASK( RouteRules, joinDesiredWcRp, ) ASK( RouteRules, joinDesiredWc, ) \
   ASK( RouteRules, rptJoinDesiredWc, ) \
   ASK( RouteRules, joinDesiredSg, ) ASK( RouteRules, pruneDesiredSgRpt, ) \
   ASK( RouteRules, comesBySharedTree, ) ASK( RouteRules, incomingIntf, ) \
   ASK( RouteRules, incomingRpf, ) ASK( RouteRules, incomingAttached, ) \
   ASK( RouteRules, joinDesiredSgFastFailover, *arguments.fastFailoverIntfs )
// clang-format on

#define PIMSM_ANSWER( Rules, name, argument ) \
   if ( macro == #name )                      \
      return answerText( Detail::Rules<Q>( q, about ).name( argument ) );
#define PIMSM_ANSWER_SG( Rules, name, argument )    \
   if ( macro == #name ) requireSg( about, macro ); \
   PIMSM_ANSWER( Rules, name, argument )
#define PIMSM_NAME( Rules, name, argument ) #name,

void requireSg( const Intf& about, Mox::StringView macro ) {
   if ( about.parentRoute() == nullptr || !about.parentRoute()->wildCard() ) return;
   throw Mox::RangeError( Mox::String( macro ) +
                          " is asked about (S,G) routes, not about a (*,G) route" );
}

[[noreturn]] void unknownMacro( const char* of, Mox::StringView macro,
                                const std::vector<Mox::StringView>& names ) {
   throw Mox::NameError( fmt::format( "no macro of {}: {}; there are {}", of, macro,
                                      fmt::join( names, ", " ) ) );
}

template <class Q>
Mox::String answer( const Q& q, const Intf& about, Mox::StringView macro,
                    const MacroArguments& arguments ) {
   PIMSM_INTF_MACROS( PIMSM_ANSWER, PIMSM_ANSWER_SG )
   unknownMacro( "an interface", macro, intfMacroNames() );
}

template <class Q>
Mox::String answer( const Q& q, const Route& about, Mox::StringView macro,
                    MacroArguments arguments ) {
   static const Mox::Ptr<IntfCollection> none = intfCollectionFactory();
   if ( arguments.fastFailoverIntfs == nullptr )
      arguments.fastFailoverIntfs = none.get();
   PIMSM_ROUTE_MACROS( PIMSM_ANSWER )
   unknownMacro( "a route", macro, routeMacroNames() );
}

Vantu::IntfId asked( const Intf& about ) {
   return about.intfId();
}
Vantu::IntfId asked( const Route& ) {
   return {};
}

template <class About>
Detail::Record record( const About& about, Mox::StringView macro,
                       const MacroArguments& arguments, const MacroInput* replaced,
                       bool alternatives ) {
   Detail::Record record;
   record.asked = asked( about );
   record.alternatives = alternatives;
   record.finished = &record.roots;
   answer( Detail::Recording( record, replaced ), about, macro, arguments );
   return record;
}

template <class About>
std::vector<MacroFlip> flips( const About& about, Mox::StringView macro,
                              const MacroArguments& arguments ) {
   Detail::Record plain = record( about, macro, arguments, nullptr, true );
   const Mox::String& present = plain.roots.front().value;
   std::vector<MacroFlip> found;
   for ( const Detail::Record::Read& read : plain.inputs ) {
      MacroInput other = read.input;
      for ( const Mox::String& value : read.alternatives ) {
         other.value = value;
         Mox::String then =
            answer( Detail::Replacing( { &other, 1 } ), about, macro, arguments );
         if ( then != present ) found.push_back( { read.input, value, then } );
      }
   }
   return found;
}

}

const std::vector<Mox::StringView>& intfMacroNames() {
   static const std::vector<Mox::StringView> names{
      PIMSM_INTF_MACROS( PIMSM_NAME, PIMSM_NAME ) };
   return names;
}

const std::vector<Mox::StringView>& routeMacroNames() {
   static const std::vector<Mox::StringView> names{
      PIMSM_ROUTE_MACROS( PIMSM_NAME ) };
   return names;
}

Mox::String answerGiven( const Intf& intf, Mox::StringView macro,
                         std::span<const MacroInput> given ) {
   return answer( Detail::Replacing( given ), intf, macro, {} );
}

Derivation derive( const Intf& intf, Mox::StringView macro,
                   const MacroArguments& arguments, const MacroInput* replaced ) {
   return std::move(
      record( intf, macro, arguments, replaced, false ).roots.front() );
}

Derivation derive( const Route& route, Mox::StringView macro,
                   const MacroArguments& arguments, const MacroInput* replaced ) {
   return std::move(
      record( route, macro, arguments, replaced, false ).roots.front() );
}

std::vector<MacroFlip> flipsOf( const Intf& intf, Mox::StringView macro,
                                const MacroArguments& arguments ) {
   return flips( intf, macro, arguments );
}

std::vector<MacroFlip> flipsOf( const Route& route, Mox::StringView macro,
                                const MacroArguments& arguments ) {
   return flips( route, macro, arguments );
}

}
