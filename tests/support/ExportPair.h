// An agent and a reader in one process, over their own tables, on one test clock.
//
//    model -> RouteBraneWriterSm -> tables -> RouteBraneReaderSm -> mirror
//
// Each side has its entity manager, as two processes would; exchange() replaces
// their loops' turns.
#pragma once

#include <stdexcept>

#include "export/RouteBraneReaderSm.h"
#include "export/RouteBraneRestartSm.h"
#include "export/RouteBraneWriterSm.h"
#include "platform/loop/TestClock.h"
#include "tests/support/TempRoot.h"

namespace Routing::Pim::SparseMode::Test {

struct ExportSide {
   ExportSide( Mox::TestClock& sideClock, const std::string& root,
               ::Brane::TableRole sideRole,
               Vantu::AddressFamily family = Vantu::AddressFamily::ipv4 )
      : clock( sideClock ),
        role( sideRole ),
        manager( sideClock, nullptr, root ),
        model( statusFactory( L3::VrfName( "default" ) ) ),
        path( Brane::Status::mountPath( family, model->vrfName() ) ) {}

   void mount() {
      tables =
         Brane::Status::mountInDependencyOrder( manager, path, role, model.get() );
   }
   // Loads the tables at once.
   void reload() {
      restart = Brane::routeBraneRestartSmFactory( model, tables, role, &clock );
      while ( !model->initialized() ) clock.runPass();
   }

   Mox::TestClock& clock;
   ::Brane::TableRole role;
   Corvex::EntityManager manager;
   Mox::Ptr<Status> model;
   Mox::String path;
   Mox::Ptr<Brane::Status> tables;
   Mox::Ptr<Brane::RouteBraneRestartSm> restart;
};

struct AgentSide : ExportSide {
   AgentSide( Mox::TestClock& sideClock, const std::string& root,
              Vantu::AddressFamily family = Vantu::AddressFamily::ipv4 )
      : ExportSide( sideClock, root, ::Brane::tableWriter, family ) {}

   void start() {
      mount();
      reload();
      writer = Brane::routeBraneWriterSmFactory( model, tables, &clock );
   }
   // Publishes all marked changes: runs while reviews follow one another. Throws if
   // they stop before the end.
   void publish() {
      writer->doMaybeUpdateReviewTimer();
      int passes = 0;
      while ( !writer->changeSet()->empty() ||
              !writer->reviewChangeSet()->empty() ) {
         if ( ++passes > 100000 ) throw std::runtime_error( "no review follows" );
         clock.advance( writer->maxDelay() );
         clock.runPass();
      }
      manager.dispatch();
   }

   Mox::Ptr<Brane::RouteBraneWriterSm> writer;
};

struct ReaderSide : ExportSide {
   ReaderSide( Mox::TestClock& sideClock, const std::string& root,
               Vantu::AddressFamily family = Vantu::AddressFamily::ipv4 )
      : ExportSide( sideClock, root, ::Brane::tableReader, family ) {}

   void start() {
      mount();
      reader = Brane::routeBraneReaderSmFactory( model, tables );
      reload();
   }
   void follow() {
      clock.advance( 0.01 );
      manager.dispatch();
   }

   Mox::Ptr<Brane::RouteBraneReaderSm> reader;
};

}
