#include "tests/netns/Bed.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>

#include <fmt/format.h>

#include <cctype>
#include <csignal>
#include <fstream>
#include <queue>
#include <set>
#include <sstream>

namespace Netns {

using Mox::Test::Program;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

std::string network( AddressFamily family, size_t link ) {
   return family == AddressFamily::ipv4 ? fmt::format( "10.99.{}.", link )
                                        : fmt::format( "2001:db8:99:{}::", link );
}

constexpr AddressFamily kFamilies[] = { AddressFamily::ipv4, AddressFamily::ipv6 };

const char* lengthOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? "/24" : "/64";
}

}

namespace {

// A host leaves checksums to its device; inside a register none would be computed.
void computeChecksums( const Namespace& host, const std::string& interface ) {
   Namespace::Inside inside( host );
   Mox::Loop::Fd socket( ::socket( AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0 ),
                         "socket" );
   ethtool_value off{ ETHTOOL_STXCSUM, 0 };
   ifreq request{};
   interface.copy( request.ifr_name, IFNAMSIZ - 1 );
   request.ifr_data = reinterpret_cast<char*>( &off );
   if ( ioctl( socket.value(), SIOCETHTOOL, &request ) != 0 )
      throw std::system_error( errno, std::generic_category(),
                               "checksums of " + interface );
}

}

Bed::Bed( const std::string& links, const std::string& routers, std::string root,
          char rp )
   : root_( std::move( root ) ), rp_( rp ) {
   std::istringstream words( links );
   for ( std::string word; words >> word; ) {
      const Link link{ word.at( 0 ), word.at( 2 ) };
      for ( char name : { link.a, link.b } ) {
         const bool router = routers.find( name ) != std::string::npos;
         nodes_.try_emplace( name, static_cast<int>( nodes_.size() + 1 ), router );
      }
      links_.push_back( link );
      plug( links_.size() - 1 );
   }
   for ( const auto& [name, node] : nodes_ ) {
      if ( !node.router ) continue;
      Namespace::Inside inside( node.space );
      std::ofstream( "/proc/sys/net/ipv4/ip_forward" ) << 1;
      std::ofstream( "/proc/sys/net/ipv6/conf/all/forwarding" ) << 1;
      addRoutes( name );
   }
}

std::string Bed::interface( char of, char towards ) {
   return { static_cast<char>( std::tolower( of ) ),
            static_cast<char>( std::tolower( towards ) ) };
}

size_t Bed::linkOf( char a, char b ) const {
   for ( size_t at = 0; at < links_.size(); ++at ) {
      const Link& link = links_[at];
      if ( ( link.a == a && link.b == b ) || ( link.a == b && link.b == a ) )
         return at;
   }
   throw std::out_of_range( "no such link" );
}

IpGenAddr Bed::address( AddressFamily family, char of, char towards ) const {
   return IpGenAddr( network( family, linkOf( of, towards ) ) +
                     std::to_string( nodes_.at( of ).number ) );
}

void Bed::plug( size_t link ) {
   const auto [a, b] = links_[link];
   connect( node( a ), interface( a, b ), node( b ), interface( b, a ) );
   addAddresses( link, a, b );
   addAddresses( link, b, a );
}

void Bed::addAddresses( size_t link, char of, char towards ) {
   for ( AddressFamily family : kFamilies )
      // Usable at once, without duplicate address detection.
      node( of ).ip( fmt::format( "address add {}{}{} dev {} {}",
                                  network( family, link ), nodes_.at( of ).number,
                                  lengthOf( family ), interface( of, towards ),
                                  family == AddressFamily::ipv6 ? "nodad" : "" ) );
   computeChecksums( node( of ), interface( of, towards ) );
}

// Routes to all other links, by way of the fewest routers.
void Bed::addRoutes( char router ) {
   std::map<char, char> firstHops = { { router, 0 } };
   std::queue<char> reached( { router } );
   std::set<size_t> served;
   for ( ; !reached.empty(); reached.pop() ) {
      const char at = reached.front();
      for ( size_t link = 0; link < links_.size(); ++link ) {
         const auto [a, b] = links_[link];
         if ( a != at && b != at ) continue;
         const char next = a == at ? b : a;
         const char hop = at == router ? next : firstHops.at( at );
         if ( served.insert( link ).second && at != router ) {
            for ( AddressFamily family : kFamilies )
               node( router ).ip( fmt::format(
                  "{}route replace {}0{} via {}",
                  family == AddressFamily::ipv6 ? "-6 " : "",
                  network( family, link ), lengthOf( family ),
                  Vantu::valueToStrep( address( family, hop, router ) ) ) );
         }
         if ( nodes_.at( next ).router &&
              firstHops.try_emplace( next, hop ).second )
            reached.push( next );
      }
   }
}

void Bed::replug( char a, char b ) {
   node( a ).ip( "link delete " + interface( a, b ) );
   plug( linkOf( a, b ) );
   for ( const auto& [name, node] : nodes_ ) {
      if ( node.router ) addRoutes( name );
   }
}

std::string Bed::config( char router ) const {
   std::string out =
      "vrfs:\n- name: default\n  rpf: kernel\n  maxRoutes: 1000\n  "
      "maxRouteIntfs: 5000\n  interfaces:\n";
   for ( const auto& [a, b] : links_ ) {
      if ( a != router && b != router ) continue;
      const char other = a == router ? b : a;
      out += "  - {name: " + interface( router, other ) + ", addresses: [";
      for ( AddressFamily family : kFamilies )
         out += fmt::format(
            "\"{}{}\", ", Vantu::valueToStrep( address( family, router, other ) ),
            lengthOf( family ) );
      out += "]}\n";
   }
   if ( rp_ == 0 ) return out;
   const auto first = std::find_if(
      links_.begin(), links_.end(),
      [&]( const Link& link ) { return link.a == rp_ || link.b == rp_; } );
   out += "  rps:\n";
   for ( AddressFamily family : kFamilies )
      out +=
         fmt::format( "  - {{address: \"{}\"}}\n",
                      Vantu::valueToStrep( address(
                         family, rp_, first->a == rp_ ? first->b : first->a ) ) );
   return out;
}

void Bed::start( char router, const Program::Arguments& more ) {
   Node& node = nodes_.at( router );
   const std::string config = place( router ) + ".yaml";
   std::ofstream( config ) << this->config( router );
   node.forwarder.reset();
   startAgent( router, more );
   Namespace::Inside inside( node.space );
   node.forwarder = std::make_unique<Program>( Program::Arguments{
      PIMSM_MFIB, "--config", config, "--root", place( router ) } );
}

void Bed::startAgent( char router, const Program::Arguments& more ) {
   Node& node = nodes_.at( router );
   Program::Arguments arguments = { PIMSM_AGENT, "--speak",
                                    "--config",  place( router ) + ".yaml",
                                    "--root",    place( router ) };
   arguments.insert( arguments.end(), more.begin(), more.end() );
   node.agent.reset();
   Namespace::Inside inside( node.space );
   node.agent = std::make_unique<Program>( arguments );
}

void Bed::killAgent( char router ) {
   agent( router ).signal( SIGKILL );
   agent( router ).wait();
   startAgent( router, {} );
}

std::string Bed::show( char router, Program::Arguments arguments ) const {
   arguments.insert( arguments.begin(), { PIMSM_SHOW, "--root", place( router ) } );
   return Mox::Test::runToEnd( arguments ).out;
}

std::string Bed::state() const {
   std::string out;
   for ( const auto& [name, node] : nodes_ ) {
      if ( node.agent == nullptr ) continue;
      out += fmt::format( "{}:\n{}{}{}{}{}{}", name, show( name, { "interfaces" } ),
                          show( name, {} ), node.space.ip( "mroute show" ),
                          node.space.ip( "-6 mroute show" ), node.agent->err(),
                          node.forwarder->err() );
   }
   return out;
}

}
