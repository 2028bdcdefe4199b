// A forwarding process in the test network's router. The test plays the agent and
// writes the tables itself.
#pragma once

#include <fstream>

#include "published/MfibStatus.h"
#include "tests/netns/Topology.h"
#include "tests/support/ExportPair.h"
#include "tests/support/Program.h"
#include "tests/support/VrfBuilder.h"

namespace Netns {

// The route tables of one family, as an agent writes them.
class Routes {
 public:
   Routes( const std::string& root, Vantu::AddressFamily family )
      : agent_( clock_, root, family ) {
      agent_.start();
   }

   // Publishes an (S,G) on its source tree, or with the unspecified source a (*,G),
   // with this incoming and these outgoing interfaces.
   void route( const Vantu::IpGenAddr& source, const Vantu::IpGenAddr& group,
               const std::string& incoming,
               const std::vector<std::string>& outgoing ) {
      prepare( source, group, incoming, outgoing );
      publish();
   }
   // As route(), but without publishing.
   void prepare( const Vantu::IpGenAddr& source, const Vantu::IpGenAddr& group,
                 const std::string& incoming,
                 const std::vector<std::string>& outgoing ) {
      namespace Sm = Routing::Pim::SparseMode;
      Sm::Test::Vrf vrf( agent_.model );
      std::string g = valueToStrep( group );
      auto route = source.isUnspecified()
                      ? vrf.wc( g )
                      : vrf.sg( valueToStrep( source ), g ).spTree();
      route.rpf( incoming ).get()->initializedIs( true );
      for ( const char* name : { "r0", "r1", "r2", "r3" } ) {
         bool out =
            std::find( outgoing.begin(), outgoing.end(), name ) != outgoing.end();
         if ( !out && route->routeIntf( Vantu::IntfId( name ) ) == nullptr )
            continue;
         auto intf = route.intf( name );
         intf->initializedIs( true );
         intf->forwardIs( out );
         intf.joinState( out ? Sm::Intf::joined : Sm::Intf::noInfo );
      }
   }
   void publish() { agent_.publish(); }
   void remove( const Vantu::IpGenAddr& source, const Vantu::IpGenAddr& group ) {
      agent_.model->routeDel( { source, group } );
      agent_.publish();
   }

 private:
   Mox::TestClock clock_{ 1000.0 };
   Routing::Pim::SparseMode::Test::AgentSide agent_;
};

// The forwarding process's tables.
class Published {
 public:
   Published( const std::string& root, Vantu::AddressFamily family )
      : manager_( clock_, nullptr, root ),
        tables_( ::Published::MfibStatus::mount(
           manager_,
           ::Published::MfibStatus::mountPath( family, L3::VrfName( "default" ) ),
           Brane::tableReader ) ) {}

   const ::Published::MfibStatus& now() {
      clock_.advance( 0.01 );
      manager_.dispatch();
      return *tables_;
   }

 private:
   Mox::TestClock clock_{ 1000.0 };
   Corvex::EntityManager manager_;
   Mox::Ptr<::Published::MfibStatus> tables_;
};

// pimsm-mfib in the router.
class Forwarder {
 public:
   Forwarder( const Topology& topology, const std::string& root,
              const std::string& config,
              const Mox::Test::Program::Arguments& more = {} )
      : inside_( std::make_unique<Namespace::Inside>( topology.router ) ),
        program_( command( root, config, more ) ) {
      inside_.reset();
   }

   Mox::Test::Program& program() { return program_; }
   // Has it reported that it is in step, once a family?
   bool inStep( size_t families = 1 ) {
      return program_.until( [&] {
         size_t count = 0;
         for ( size_t at = 0;
               ( at = program_.err().find( "in step", at ) ) != std::string::npos;
               ++at )
            ++count;
         return count >= families;
      } );
   }

 private:
   static Mox::Test::Program::Arguments command(
      const std::string& root, const std::string& config,
      const Mox::Test::Program::Arguments& more ) {
      Mox::Test::Program::Arguments out = { PIMSM_MFIB, "--root", root, "--config",
                                            config };
      out.insert( out.end(), more.begin(), more.end() );
      return out;
   }

   std::unique_ptr<Namespace::Inside> inside_;
   Mox::Test::Program program_;
};

}
