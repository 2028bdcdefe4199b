// A network of routers and hosts, IPv4 and IPv6, whose routers run the agent and the
// forwarding process.
//
//    Bed bed( "S-F F-L L-H", "FL", root.path() );
//
// makes the hosts S and H and the routers F and L. The interface of F towards L is "fl".
// Link n, from 0, has 10.99.n.0/24 and 2001:db8:99:n::/64; node m, from 1 in the order
// in which they are named, has the last part m. Unicast routes are the shortest ones.
#pragma once

#include <map>

#include "platform/net/IpGenAddr.h"
#include "tests/netns/Namespace.h"
#include "tests/support/Program.h"

namespace Netns {

class Bed {
 public:
   // `rp` is the RP of all groups, by its address on its first link; 0: none.
   Bed( const std::string& links, const std::string& routers, std::string root,
        char rp = 0 );

   const Namespace& node( char name ) const { return nodes_.at( name ).space; }
   static std::string interface( char of, char towards );
   Vantu::IpGenAddr address( Vantu::AddressFamily family, char of,
                             char towards ) const;
   // Makes the link of these two anew, as if a cable came with new interfaces.
   void replug( char a, char b );

   // Starts agent and forwarding process; `more` are the agent's further arguments.
   void start( char router, const Mox::Test::Program::Arguments& more = {} );
   // Kills the agent and starts it again; the forwarding process goes on.
   void killAgent( char router );
   Mox::Test::Program& agent( char router ) { return *nodes_.at( router ).agent; }
   // What pimsm-show prints there.
   std::string show( char router, Mox::Test::Program::Arguments arguments ) const;
   // All that a failed test should tell.
   std::string state() const;

 private:
   struct Node {
      Node( int itsNumber, bool isRouter )
         : number( itsNumber ), router( isRouter ) {}

      int number;
      bool router;
      Namespace space;
      std::unique_ptr<Mox::Test::Program> agent, forwarder;
   };
   struct Link {
      char a, b;
   };

   void startAgent( char router, const Mox::Test::Program::Arguments& more );
   void plug( size_t link );
   void addAddresses( size_t link, char of, char towards );
   void addRoutes( char router );
   size_t linkOf( char a, char b ) const;
   std::string config( char router ) const;
   std::string place( char router ) const { return root_ + "/" + router; }

   std::string root_;
   const char rp_;
   std::map<char, Node> nodes_;
   std::vector<Link> links_;
};

}
