#include "apps/show/text/Words.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>

#include "apps/program/Printable.h"

namespace Show {

namespace Sm = Routing::Pim::SparseMode;

std::string text( const Vantu::IpGenAddr& address ) {
   return Vantu::valueToStrep( address );
}

std::string nameText( Vantu::IntfId intfId ) {
   return Programs::printable( intfId.name() );
}

std::string vrfText( const Mirror& mirror ) {
   return Programs::printable( mirror.vrf() );
}

std::string mirrorText( const Mirror& mirror ) {
   return fmt::format( "vrf {} {}", vrfText( mirror ),
                       familyName( mirror.family ) );
}

std::string headingText( const Mirror& mirror, const std::string& told ) {
   return fmt::format( "{}: {}, agent {}\n", mirrorText( mirror ), told,
                       mirror.writerStory() );
}

std::string countText( size_t count, const char* what ) {
   return fmt::format( "{} {}{}", count, what, count == 1 ? "" : "s" );
}

std::string lineText( std::string text ) {
   text.erase( text.find_last_not_of( ' ' ) + 1 );
   return text + '\n';
}

std::string keyText( const Routing::Pim::RouteKey& key ) {
   std::ostringstream out;
   out << key;
   return out.str();
}

std::string spanText( double seconds ) {
   struct Unit {
      uint64_t seconds;
      char letter;
   };
   constexpr Unit kUnits[] = {
      { 86400, 'd' }, { 3600, 'h' }, { 60, 'm' }, { 1, 's' } };
   // A table may hold any number, even no number at all.
   constexpr double kLongest = 1e12;
   auto left =
      seconds > 0 ? static_cast<uint64_t>( std::min( seconds, kLongest ) ) : 0;
   for ( size_t i = 0; i + 1 < std::size( kUnits ); ++i ) {
      if ( left < kUnits[i].seconds ) continue;
      uint64_t first = left / kUnits[i].seconds;
      uint64_t second = left % kUnits[i].seconds / kUnits[i + 1].seconds;
      std::string out = fmt::format( "{}{}", first, kUnits[i].letter );
      if ( second != 0 ) out += fmt::format( "{}{}", second, kUnits[i + 1].letter );
      return out;
   }
   return fmt::format( "{}s", left );
}

std::string bitsText( double rate ) {
   constexpr const char* kPrefixes[] = { "", "k", "M", "G", "T" };
   size_t at = 0;
   for ( ; rate >= 1000 && at + 1 < std::size( kPrefixes ); ++at ) rate /= 1000;
   return fmt::format( "{:.{}f} {}bit/s", rate, at == 0 ? 0 : 1, kPrefixes[at] );
}

std::string packetsText( double rate ) {
   return fmt::format( "{:.1f} packets/s", rate );
}

std::string generationText( uint32_t id ) {
   return fmt::format( "{:#010x}", id );
}

std::string agoText( double time, double now ) {
   return time == 0.0 ? "never" : spanText( now - time ) + " ago";
}

std::string noInterfacesText( const Mirror& mirror ) {
   return Mirror::problem( mirror.agent->interface() ).kind ==
                Mirror::Problem::missing
             ? "the agent publishes no interfaces"
             : "the agent's table of interfaces cannot be read";
}

std::string lastWriteText( const Mirror& mirror ) {
   const auto since = mirror.sinceLastWrite();
   return fmt::format( "As of the agent's last write, {}{}.\n",
                       since ? spanText( *since ) + " ago" : "at an unknown time",
                       mirror.writerAlive()
                          ? ""
                          : std::string( "; it is " ) + mirror.writerStory() );
}

std::string rpfText( const Rpf& rpf, bool attached ) {
   if ( rpf == Rpf() ) return "unresolved";
   const std::string intf = nameText( rpf.intfId );
   if ( attached ) return intf + ", attached";
   return intf + " via " + Vantu::valueToStrep( rpf.neighbor );
}

std::string treeText( const Route& route ) {
   if ( route.spTree() ) return "source tree";
   if ( route.rpTree() || route.wildCard() ) return "shared tree";
   return "no tree";
}

std::string forwardText( const Intf& intf ) {
   return intf.forward() ? "forwards" : "does not forward";
}

namespace {

void appendPart( std::string& out, const std::string& part ) {
   if ( !out.empty() ) out += ", ";
   out += part;
}

std::string assertText( const Sm::AssertInfo& info ) {
   std::string who = Vantu::valueToStrep( info.assertWinnerMetric.address );
   return info.assertState == Sm::iAmAssertWinner ? "assert won"
                                                  : "assert lost to " + who;
}

// Is it known that another router serves the members here?
bool servedByAnother( const Intf& intf ) {
   return !intf.forward() && intf.pimIntf() != nullptr && !intf.iAmDr();
}

// A record without state of its own stands for the (*,G) route's.
std::string inheritedText( const Intf& intf ) {
   const Intf* shared = intf.wcIntf();
   if ( shared == nullptr ) return "";
   if ( !intf.forward() && shared->assertInfo().assertState == Sm::iAmAssertLoser )
      return "(*,G) " + assertText( shared->assertInfo() );
   const char* how = intf.forward() ? "inherits" : "in spite of";
   if ( shared->joinState() != Intf::noInfo )
      return fmt::format( "{} the (*,G) join", how );
   if ( !shared->localReceiverInclude() ) return "";
   return servedByAnother( intf ) ? "(*,G) member, another router is DR"
                                  : fmt::format( "{} the (*,G) member", how );
}

}

std::string intfReason( const Intf& intf, double now ) {
   std::string out;
   const Route* route = intf.parentRoute();
   if ( route != nullptr && intf.intfId() == route->incomingIntf() )
      appendPart( out, "incoming interface" );
   if ( intf.joinState() == Intf::prunePending ) appendPart( out, "prune pending" );
   if ( intf.joinState() != Intf::noInfo ) {
      appendPart( out, "last join " + agoText( intf.lastJoinReceived(), now ) );
   }
   if ( intf.rptState() != Intf::rptNoInfo ) {
      appendPart( out, ( intf.prunesSgRpt() ? "source pruned "
                                            : "source prune pending, last " ) +
                          agoText( intf.lastRptPruneReceived(), now ) );
   }
   if ( intf.localReceiverInclude() )
      appendPart(
         out, servedByAnother( intf ) ? "member, another router is DR" : "member" );
   if ( intf.localReceiverExclude() ) appendPart( out, "source excluded" );
   if ( intf.assertInfo().assertState != Sm::assertNoInfo ) {
      appendPart( out, assertText( intf.assertInfo() ) );
   }
   if ( out.empty() ) appendPart( out, inheritedText( intf ) );
   return out;
}

}
