#include "tests/netns/Bed.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <fmt/format.h>

#include <cctype>
#include <csignal>
#include <fstream>
#include <iterator>
#include <queue>
#include <set>
#include <sstream>

#include "tests/netns/Flow.h"

namespace Netns {

using Mox::Test::Program;
using Vantu::AddressFamily;
using Vantu::IpGenAddr;

namespace {

std::string network( AddressFamily family, size_t net ) {
   return family == AddressFamily::ipv4 ? fmt::format( "10.99.{}.", net )
                                        : fmt::format( "2001:db8:99:{}::", net );
}

const char* lengthOf( AddressFamily family ) {
   return family == AddressFamily::ipv4 ? "/24" : "/64";
}

bool holds( const std::string& words, const std::string& word ) {
   std::istringstream in( words );
   return std::find( std::istream_iterator<std::string>( in ), {}, word ) !=
          std::istream_iterator<std::string>();
}

void write( const std::string& setting, int value ) {
   std::ofstream( "/proc/sys/net/" + setting ) << value;
}

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

Bed::Bed( const Plan& plan, std::string root )
   : root_( std::move( root ) ),
     rp_( plan.rp ),
     vrf_( plan.vrf ),
     interface_( plan.interface ),
     vrfOf_( plan.vrfOf ),
     further_( plan.further ) {
   std::istringstream words( plan.links );
   for ( std::string word; words >> word; ) {
      const size_t dash = word.find( '-' );
      const Name a = word.substr( 0, dash ), b = word.substr( dash + 1 );
      add( a, plan );
      add( b, plan );
      const size_t net = netOf( a, b );
      nodes_.at( a ).ports.push_back(
         { interface( a, b ), b, net, plan.interface } );
      nodes_.at( b ).ports.push_back(
         { interface( b, a ), a, net, plan.interface } );
      plug( a, b );
   }
   for ( const Name& router : routers() ) addRoutes( router );
}

void Bed::add( const Name& name, const Plan& plan ) {
   const auto [found, isNew] = nodes_.try_emplace( name );
   if ( !isNew ) return;
   names_.push_back( name );
   Node& node = found->second;
   node.number = static_cast<int>( names_.size() );
   node.router = holds( plan.routers, name );
   node.lan = holds( plan.lans, name );
   Namespace::Inside inside( node.space );
   write( "ipv6/conf/default/addr_gen_mode", 1 );
   write( "ipv4/conf/all/rp_filter", 0 );
   write( "ipv4/conf/default/rp_filter", 0 );
   if ( node.lan )
      node.space.ip( "link add lan type bridge mcast_snooping 0 forward_delay 0" );
   if ( node.lan ) node.space.ip( "link set lan up" );
   if ( !node.router ) return;
   write( "ipv4/ip_forward", 1 );
   write( "ipv6/conf/all/forwarding", 1 );
}

// That of the link's bridge, or a new one.
size_t Bed::netOf( const Name& a, const Name& b ) {
   const Node& left = nodes_.at( a );
   const Node& right = nodes_.at( b );
   const Node* lan = left.lan ? &left : right.lan ? &right : nullptr;
   size_t net = nets_.size();
   if ( lan != nullptr && !lan->ports.empty() ) net = lan->ports[0].net;
   if ( net == nets_.size() ) nets_.emplace_back();
   if ( !left.lan ) nets_[net].push_back( a );
   if ( !right.lan ) nets_[net].push_back( b );
   return net;
}

std::vector<Bed::Name> Bed::routers() const {
   std::vector<Name> out;
   for ( const Name& name : names_ ) {
      if ( nodes_.at( name ).router ) out.push_back( name );
   }
   return out;
}

std::string Bed::interface( const Name& of, const Name& towards ) {
   std::string out = of + towards;
   std::transform( out.begin(), out.end(), out.begin(), ::tolower );
   return out;
}

std::string Bed::interface( const Name& host ) const {
   return nodes_.at( host ).ports.at( 0 ).interface;
}

const Bed::Port& Bed::port( const Name& of, const Name& towards ) const {
   const auto& ports = nodes_.at( of ).ports;
   for ( const Port& each : ports ) {
      if ( towards.empty() || each.towards == towards ) return each;
   }
   for ( const Port& each : ports ) {
      const auto& members = nets_[each.net];
      if ( std::find( members.begin(), members.end(), towards ) != members.end() )
         return each;
   }
   throw std::out_of_range( "no link from " + of + " to " + towards );
}

IpGenAddr Bed::address( AddressFamily family, const Name& of,
                        const Name& towards ) const {
   return IpGenAddr( network( family, port( of, towards ).net ) +
                     std::to_string( nodes_.at( of ).number ) );
}

void Bed::plug( const Name& a, const Name& b ) {
   connect( node( a ), interface( a, b ), node( b ), interface( b, a ) );
   plugIn( a, b );
   plugIn( b, a );
}

void Bed::plugIn( const Name& of, const Name& towards ) {
   const Node& node = nodes_.at( of );
   const Port& port = this->port( of, towards );
   if ( node.lan )
      return void( node.space.ip( "link set " + port.interface + " master lan" ) );
   computeChecksums( node.space, port.interface );
   // Usable at once, without duplicate address detection.
   node.space.ip( fmt::format( "address add fe80::{}/64 dev {} nodad", node.number,
                               port.interface ) );
   for ( AddressFamily family : kFamilies )
      node.space.ip( fmt::format(
         "address add {}{} dev {} {}",
         Vantu::valueToStrep( address( family, of, towards ) ), lengthOf( family ),
         port.interface, family == AddressFamily::ipv6 ? "nodad" : "" ) );
}

void Bed::setRoute( const Name& router, size_t net, const Name& by ) const {
   for ( AddressFamily family : kFamilies )
      node( router ).ip( fmt::format(
         "{}route replace {}0{} via {}", family == AddressFamily::ipv6 ? "-6 " : "",
         network( family, net ), lengthOf( family ),
         Vantu::valueToStrep( address( family, by, router ) ) ) );
}

void Bed::route( const Name& router, const Name& to, const Name& by ) const {
   for ( const Port& each : nodes_.at( to ).ports )
      setRoute( router, each.net, by );
}

// Routes to all other subnets, by way of the fewest routers.
void Bed::addRoutes( const Name& router ) const {
   std::map<Name, Name> firstHops = { { router, "" } };
   std::queue<Name> reached( { router } );
   std::set<size_t> served;
   for ( ; !reached.empty(); reached.pop() ) {
      const Name at = reached.front();
      for ( const Port& port : nodes_.at( at ).ports ) {
         if ( served.insert( port.net ).second && at != router )
            setRoute( router, port.net, firstHops.at( at ) );
         for ( const Name& next : nets_[port.net] ) {
            const Name hop = at == router ? next : firstHops.at( at );
            if ( nodes_.at( next ).router &&
                 firstHops.try_emplace( next, hop ).second )
               reached.push( next );
         }
      }
   }
}

void Bed::replug( const Name& a, const Name& b ) {
   node( a ).ip( "link delete " + interface( a, b ) );
   plug( a, b );
   for ( const Name& router : routers() ) addRoutes( router );
}

std::string Bed::config( const Name& router ) const {
   std::string out =
      "vrfs:\n- name: default\n  rpf: kernel\n  maxRoutes: 3000\n  "
      "maxRouteIntfs: 5000\n" +
      vrf_ + "  interfaces:\n";
   for ( const Port& port : nodes_.at( router ).ports ) {
      if ( port.keys.find( "nothing" ) != std::string::npos ) continue;
      out += "  - {name: " + port.interface + ", addresses: [";
      for ( AddressFamily family : kFamilies )
         out += fmt::format(
            "\"{}{}\", ",
            Vantu::valueToStrep( address( family, router, port.towards ) ),
            lengthOf( family ) );
      const bool first = &port == &nodes_.at( router ).ports.front();
      if ( const auto found = further_.find( router );
           first && found != further_.end() )
         out += found->second;
      out += "]" + ( port.keys.empty() ? "" : ", " + port.keys ) + "}\n";
   }
   if ( const auto own = vrfOf_.find( router ); own != vrfOf_.end() )
      out += own->second;
   if ( rp_.empty() ) return out;
   out += "  rps:\n";
   for ( AddressFamily family : kFamilies )
      out += fmt::format( "  - {{address: \"{}\"}}\n",
                          Vantu::valueToStrep( address( family, rp_ ) ) );
   return out;
}

void Bed::startAll() {
   for ( const Name& router : routers() ) start( router );
   for ( const Name& router : routers() ) {
      if ( !eventually( [&] { return inStep( router ); } ) )
         throw std::runtime_error( "no neighbours at " + router + '\n' + state() );
   }
}

// Does it know a neighbour for each other router on its links?
bool Bed::inStep( const Name& router ) const {
   for ( const char* family : { "-4", "-6" } ) {
      std::map<std::string, int> neighbors;
      std::istringstream lines( show( router, { family, "interfaces" } ) );
      for ( std::string line, name, dr; std::getline( lines, line ); ) {
         std::istringstream words( line );
         int count = 0;
         if ( words >> name >> dr >> count ) neighbors[name] = count;
      }
      for ( const Port& port : nodes_.at( router ).ports ) {
         const auto& members = nets_[port.net];
         const auto others = std::count_if(
            members.begin(), members.end(),
            [&]( const Name& each ) { return nodes_.at( each ).router; } );
         if ( neighbors[port.interface] != others - 1 ) return false;
      }
   }
   return true;
}

std::vector<Decoder::Place> Bed::places() const {
   std::vector<Decoder::Place> out;
   std::set<size_t> seen;
   for ( const auto& [name, node] : nodes_ ) {
      if ( node.lan && seen.insert( node.ports.at( 0 ).net ).second )
         out.push_back( { node.space, "lan" } );
   }
   for ( const auto& [name, node] : nodes_ ) {
      for ( const Port& port : node.ports ) {
         if ( seen.insert( port.net ).second )
            out.push_back( { node.space, port.interface } );
      }
   }
   return out;
}

void Bed::start( const Name& router ) {
   Node& node = nodes_.at( router );
   std::ofstream( place( router ) + ".yaml" ) << config( router );
   if ( node.agent != nullptr ) node.agent->wait();
   startAgent( router );
   startForwarder( router );
}

void Bed::startForwarder( const Name& router ) {
   Node& node = nodes_.at( router );
   if ( node.forwarder != nullptr ) return;
   const std::string config = place( router ) + ".yaml";
   Namespace::Inside inside( node.space );
   node.forwarder = std::make_unique<Program>( Program::Arguments{
      PIMSM_MFIB, "--keep", "--config", config, "--root", place( router ) } );
}

void Bed::end( const Name& router ) {
   agent( router ).signal( SIGTERM );
}

void Bed::startAgent( const Name& router ) {
   Node& node = nodes_.at( router );
   node.agent.reset();
   Namespace::Inside inside( node.space );
   node.agent = std::make_unique<Program>(
      Program::Arguments{ PIMSM_AGENT, "--speak", "--goodbye", "--config",
                          place( router ) + ".yaml", "--root", place( router ) } );
}

void Bed::killAgent( const Name& router ) {
   agent( router ).signal( SIGKILL );
   agent( router ).wait();
   startAgent( router );
}

pid_t Bed::forwarder( const Name& router ) const {
   const pid_t child = Mox::Test::childOf( nodes_.at( router ).forwarder->pid() );
   if ( child == 0 )
      throw std::runtime_error( "no forwarding process at " + router );
   return child;
}

void Bed::killForwarder( const Name& router ) const {
   kill( forwarder( router ), SIGKILL );
}

void Bed::halt( const Name& router ) {
   agent( router ).signal( SIGKILL );
   agent( router ).wait();
}

void Bed::reboot( const Name& router ) {
   halt( router );
   endForwarder( router );
   std::filesystem::remove_all( place( router ) );
   start( router );
}

void Bed::endForwarder( const Name& router ) {
   Program& forwarder = *nodes_.at( router ).forwarder;
   forwarder.signal( SIGTERM );
   forwarder.wait();
   nodes_.at( router ).forwarder.reset();
}

void Bed::record( const Name& router, const std::string& store ) {
   nodes_.at( router ).recorder = std::make_unique<Program>(
      Program::Arguments{ PIMSM_RECORD, "--root", place( router ), "--store", store,
                          "--router", router, "--sample", "1s" } );
}

void Bed::configure( const Name& router, const std::string& interface,
                     const std::string& keys ) {
   for ( Port& each : nodes_.at( router ).ports )
      if ( each.interface == interface )
         each.keys = interface_ + ( keys.empty() ? "" : ", " + keys );
   std::ofstream( place( router ) + ".yaml" ) << config( router );
   agent( router ).signal( SIGHUP );
}

std::string Bed::show( const Name& router, Program::Arguments arguments ) const {
   arguments.insert( arguments.begin(), { PIMSM_SHOW, "--root", place( router ) } );
   // It compares the kernel's entries, too.
   const Namespace::Inside inside( nodes_.at( router ).space );
   return Mox::Test::runToEnd( arguments ).out;
}

std::string Bed::state() const {
   std::string out;
   for ( const auto& [name, node] : nodes_ ) {
      if ( node.agent == nullptr ) continue;
      out += fmt::format( "{}:\n{}{}{}{}{}{}", name, show( name, { "interfaces" } ),
                          show( name, {} ), node.space.ip( "-s mroute show" ),
                          node.space.ip( "-6 -s mroute show" ), node.agent->err(),
                          node.forwarder ? node.forwarder->err() : "" );
   }
   return out;
}

}
