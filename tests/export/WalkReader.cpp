#include "tests/export/WalkReader.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <map>
#include <stdexcept>

#include "export/Conversion.h"
#include "tests/support/ExportPair.h"

namespace Routing::Pim::SparseMode::Test {
namespace {

void writeAll( int fd, const void* data, size_t size ) {
   auto* bytes = static_cast<const char*>( data );
   while ( size > 0 ) {
      ssize_t done = write( fd, bytes, size );
      if ( done <= 0 ) _exit( 1 );
      bytes += done;
      size -= static_cast<size_t>( done );
   }
}

bool readAll( int fd, void* data, size_t size ) {
   auto* bytes = static_cast<char*>( data );
   while ( size > 0 ) {
      ssize_t done = read( fd, bytes, size );
      if ( done <= 0 ) return false;
      bytes += done;
      size -= static_cast<size_t>( done );
   }
   return true;
}

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

[[noreturn]] void runReader( int in, int out, const std::string& root,
                             Vantu::AddressFamily family ) {
   {
      Mox::TestClock clock;
      ReaderSide reader( clock, root, family );
      reader.start();
      char command;
      while ( readAll( in, &command, 1 ) ) {
         // A first turn hears of new tables, a second of what they hold.
         for ( int turn = 0; turn < 4; ++turn ) reader.follow();
         std::string answer = compare( reader );
         auto size = static_cast<uint32_t>( answer.size() );
         writeAll( out, &size, sizeof size );
         writeAll( out, answer.data(), answer.size() );
      }
   }
   _exit( 0 );
}

}

WalkReader::WalkReader( const std::string& root, Vantu::AddressFamily family ) {
   int commands[2];
   int answers[2];
   if ( pipe( commands ) != 0 || pipe( answers ) != 0 ) {
      throw std::runtime_error( "pipe" );
   }
   pid_ = fork();
   if ( pid_ == 0 ) {
      close( commands[1] );
      close( answers[0] );
      runReader( commands[0], answers[1], root, family );
   }
   close( commands[0] );
   close( answers[1] );
   toChild_ = commands[1];
   fromChild_ = answers[0];
}

WalkReader::~WalkReader() {
   close( toChild_ );
   close( fromChild_ );
   waitpid( pid_, nullptr, 0 );
}

std::string WalkReader::sync() {
   writeAll( toChild_, "S", 1 );
   uint32_t size = 0;
   if ( !readAll( fromChild_, &size, sizeof size ) ) return "the reader has died";
   std::string answer( size, '\0' );
   if ( !readAll( fromChild_, answer.data(), size ) ) return "the reader has died";
   return answer;
}

}
