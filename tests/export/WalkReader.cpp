#include "tests/export/WalkReader.h"

#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>

#include "export/Conversion.h"
#include "tests/support/ExportPair.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

// What the process answers, below the tables' root.
constexpr const char* kAnswer = "/answer";

using Routes = std::map<RouteKey, Brane::Route>;
using Intfs = std::map<RouteIntfKey, Brane::Intf>;

// Without a fast-reroute RPF the mirror has no record to say "attached" of.
Brane::Route mirrored( Brane::Route record ) {
   if ( record.rpfFrr == Rpf() ) record.rpfFrrAttached = false;
   return record;
}

std::string linesOfTables( const Brane::Status& tables, bool asMirrored ) {
   Routes routes;
   Intfs intfs;
   tables.route().visit( nullptr, [&]( const Brane::Route& record ) {
      routes.emplace( record.key, asMirrored ? mirrored( record ) : record );
      return true;
   } );
   tables.routeIntf().visit( nullptr, [&]( const Brane::Intf& record ) {
      intfs.emplace( record.key, record );
      return true;
   } );
   return recordLines( routes, intfs );
}

std::string linesOfModel( const Status& model ) {
   Routes routes;
   Intfs intfs;
   for ( const Route& route : model.route() ) {
      routes.emplace( route.key(), Brane::doGetBraneRouteFromRoute( route ) );
      for ( const Intf& intf : route.routeIntf() ) {
         intfs.emplace( RouteIntfKey{ route.key(), intf.intfId() },
                        Brane::doGetBraneIntfFromRouteIntf( route.key(), intf ) );
      }
   }
   return recordLines( routes, intfs );
}

std::string compare( const ReaderSide& reader ) {
   std::string model = linesOfModel( *reader.model );
   std::string tables = linesOfTables( *reader.tables, true );
   size_t counted = reader.model->sgRoutes() + reader.model->wcRoutes();
   if ( model == tables && counted == reader.model->route().size() ) {
      return linesOfTables( *reader.tables, false );
   }
   return "mirror differs: tables\n" + tables + "model\n" + model + "counted " +
          Mox::valueToStrep( counted );
}

[[noreturn]] void runReader( int owner, const std::string& root,
                             Vantu::AddressFamily family ) {
   {
      Mox::TestClock clock;
      ReaderSide reader( clock, root, family );
      reader.start();
      char word;
      while ( read( owner, &word, 1 ) == 1 ) {
         // A first turn hears of new tables, a second of what they hold.
         for ( int turn = 0; turn < 4; ++turn ) reader.follow();
         std::ofstream( root + kAnswer ) << compare( reader );
         if ( write( owner, &word, 1 ) != 1 ) break;
      }
   }
   _exit( 0 );
}

}

WalkReader::WalkReader( const std::string& root, Vantu::AddressFamily family )
   : root_( root ) {
   int ends[2];
   if ( socketpair( AF_UNIX, SOCK_STREAM, 0, ends ) != 0 ) {
      throw std::runtime_error( "socketpair" );
   }
   pid_ = fork();
   if ( pid_ == 0 ) {
      close( ends[0] );
      runReader( ends[1], root, family );
   }
   close( ends[1] );
   child_ = ends[0];
}

WalkReader::~WalkReader() {
   close( child_ );
   waitpid( pid_, nullptr, 0 );
}

std::string WalkReader::sync() {
   char word = 'S';
   if ( send( child_, &word, 1, MSG_NOSIGNAL ) != 1 ||
        read( child_, &word, 1 ) != 1 ) {
      return "the reader has died";
   }
   std::stringstream answer;
   answer << std::ifstream( root_ + kAnswer ).rdbuf();
   return answer.str();
}

}
