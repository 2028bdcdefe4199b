// A network of routers and hosts, IPv4 and IPv6, whose routers run the agent and the
// forwarding process.
//
//    Bed bed( { .links = "S-F F-L X-L H1-X", .routers = "F X", .lans = "L" }, root.path() );
//
// makes the hosts S and H1, the routers F and X, and the bridge L, which floods multicast.
// The interface of F towards L is "fl". Subnet n, from 0 in the order of the links that
// begin it, has 10.99.n.0/24 and 2001:db8:99:n::/64; node m, from 1 in the order in which
// they are named, has the last part m, and fe80::m on each link. Unicast routes are the
// shortest ones, of these the first by the order of the links.
#pragma once

#include <map>

#include "platform/net/IpGenAddr.h"
#include "tests/netns/Decoder.h"
#include "tests/support/Program.h"

namespace Netns {

constexpr Vantu::AddressFamily kFamilies[] = { Vantu::AddressFamily::ipv4,
                                               Vantu::AddressFamily::ipv6 };

class Bed {
 public:
   using Name = std::string;
   struct Plan {
      std::string links, routers = "", lans = "";
      Name rp = "";          // of all groups, by its first address; empty: none
      std::string vrf = "";  // further keys of each router's VRF: lines
      std::string interface = "";              // of each interface
      std::map<Name, std::string> vrfOf = {};  // of one router's
      std::map<Name, std::string> further =
         {};  // a router's addresses, beside its links'
   };
   Bed( const Plan& plan, std::string root );

   const Namespace& node( const Name& name ) const {
      return nodes_.at( name ).space;
   }
   std::vector<Name> routers() const;
   static std::string interface( const Name& of, const Name& towards );
   // The interface of a host with one link.
   std::string interface( const Name& host ) const;
   // `towards` is a LAN or another node on the same subnet; without it, the first.
   Vantu::IpGenAddr address( Vantu::AddressFamily family, const Name& of,
                             const Name& towards = "" ) const;
   // Routes of the router to all subnets of `to` by this neighbour.
   void route( const Name& router, const Name& to, const Name& by ) const;
   // Makes the link of these two anew, as if a cable came with new interfaces.
   void replug( const Name& a, const Name& b );

   // Starts all routers and waits until neighbours know each other.
   void startAll();
   // Starts the agent, and the forwarding process where none runs.
   void start( const Name& router );
   // Ends the agent, which takes its leave: the forwarding process waits for the next.
   // On a busy machine the kernel may hold the agent for seconds, at the closing of its
   // sockets; start() waits for its end.
   void end( const Name& router );
   // Kills the agent and starts it again; the forwarding process goes on.
   void killAgent( const Name& router );
   // Kills the forwarding process; its parent starts it again.
   void killForwarder( const Name& router ) const;
   Mox::Test::Program& agent( const Name& router ) {
      return *nodes_.at( router ).agent;
   }
   pid_t forwarder( const Name& router ) const;
   // Kills the agent, which is not started again.
   void halt( const Name& router );
   // Agent and forwarding process end, and begin without tables.
   void reboot( const Name& router );
   // Ends the forwarding process, and its entries with it.
   void endForwarder( const Name& router );
   void startForwarder( const Name& router );
   // Starts the recorder beside the agent, or kills it.
   void record( const Name& router, const std::string& store );
   void endRecorder( const Name& router ) { nodes_.at( router ).recorder.reset(); }
   // Further keys of an interface, which the agent reads at once.
   void configure( const Name& router, const std::string& interface,
                   const std::string& keys );
   // What pimsm-show prints there.
   std::string show( const Name& router,
                     Mox::Test::Program::Arguments arguments ) const;
   // One place on each subnet.
   std::vector<Decoder::Place> places() const;
   // All that a failed test should tell, with the kernels' counters.
   std::string state() const;

 private:
   struct Port {
      std::string interface;
      Name towards;
      size_t net;
      std::string keys = "";
   };
   struct Node {
      int number = 0;
      bool router = false, lan = false;
      std::vector<Port> ports;
      Namespace space;
      std::unique_ptr<Mox::Test::Program> agent, forwarder, recorder;
   };

   void startAgent( const Name& router );
   bool inStep( const Name& router ) const;
   void add( const Name& name, const Plan& plan );
   size_t netOf( const Name& a, const Name& b );
   void plug( const Name& a, const Name& b );
   void plugIn( const Name& of, const Name& towards );
   void addRoutes( const Name& router ) const;
   void setRoute( const Name& router, size_t net, const Name& by ) const;
   const Port& port( const Name& of, const Name& towards ) const;
   std::string config( const Name& router ) const;
   std::string place( const Name& router ) const { return root_ + "/" + router; }

   std::string root_;
   const Name rp_;
   const std::string vrf_, interface_;
   const std::map<Name, std::string> vrfOf_, further_;
   std::vector<Name> names_;  // in their order
   std::map<Name, Node> nodes_;
   std::vector<std::vector<Name>> nets_;  // the nodes on each, without bridges
};

}
