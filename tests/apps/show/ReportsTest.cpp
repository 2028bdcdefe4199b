// What the tool prints of the shown router, word for word.
#include <gtest/gtest.h>

#include <cctype>
#include <fstream>
#include <sstream>

#include "apps/show/Explain.h"
#include "apps/show/HistogramReport.h"
#include "apps/show/RegisterReport.h"
#include "apps/show/RouteJson.h"
#include "apps/show/RouteText.h"
#include "apps/show/StatusReport.h"
#include "tests/apps/show/Published.h"

namespace Show {
namespace {

// UPDATE_GOLDEN=1 in the environment writes the files anew.
void expectGolden( const char* name, const std::string& text ) {
   std::string path = std::string( PIMSM_GOLDEN ) + '/' + name;
   if ( std::getenv( "UPDATE_GOLDEN" ) != nullptr ) std::ofstream( path ) << text;
   std::ifstream file( path );
   ASSERT_TRUE( file.is_open() ) << path;
   std::stringstream expected;
   expected << file.rdbuf();
   EXPECT_EQ( text, expected.str() )
      << "UPDATE_GOLDEN=1 writes " << path << " anew";
}

class Reports : public testing::Test {
 protected:
   std::string routes( const RouteFilter& filter, bool detail = false ) const {
      std::string out;
      for ( const auto& mirror : view.all().all() ) {
         if ( !out.empty() ) out += '\n';
         out += routesText( *mirror, filter, detail, ShownRouter::now );
      }
      return out;
   }

   ShownRouter router;
   View view{ router.root.path() };
};

TEST_F( Reports, Routes ) {
   expectGolden( "routes.txt", routes( {} ) );
}

TEST_F( Reports, RoutesInDetail ) {
   RouteFilter filter;
   filter.source = prefixArgument( "198.51.100.7" );
   filter.iface = "eth3";
   expectGolden( "detail.txt", routes( filter, true ) );
}

TEST_F( Reports, Explanation ) {
   Question question;
   question.route = SmTest::sgKey( "198.51.100.7", "239.1.2.3" );
   question.intfId = Vantu::IntfId( "eth3" );
   const Mirror& mirror = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   std::string text = explainText( mirror, question, ShownRouter::now ) + '\n';
   question.macro = "lostAssertSg";
   question.all = true;
   text += explainText( mirror, question, ShownRouter::now );
   expectGolden( "explain-macro.txt", text );
   expectGolden( "explain-macro.json",
                 explainJson( mirror, question ).dump( 2 ) + '\n' );
}

// With the agent's interfaces; every one of the group's routes.
TEST_F( Reports, OutgoingLists ) {
   router.publishInterfaces();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   std::string text;
   for ( const char* source : { "0.0.0.0", "198.51.100.7", "198.51.100.9" } ) {
      Question question;
      question.route = SmTest::sgKey( source, "239.1.2.3" );
      text += explainText( mirror, question, ShownRouter::now ) + '\n';
   }
   expectGolden( "explain.txt", text );
   Question question;
   question.route = SmTest::sgKey( "198.51.100.7", "239.1.2.3" );
   question.intfId = Vantu::IntfId( "eth3" );
   expectGolden( "explain.json", explainJson( mirror, question ).dump( 2 ) + '\n' );
}

TEST_F( Reports, RegistersAndAdvertised ) {
   std::string text;
   auto document = nlohmann::ordered_json::array();
   for ( const auto& mirror : view.all().all() ) {
      Registers registers = selectRegisters( *mirror, {} );
      Advertised advertised = selectAdvertised( *mirror, {} );
      text += registersText( *mirror, registers ) + '\n' +
              advertisedText( *mirror, advertised ) + '\n';
      document.push_back( envelope( *mirror, registersJson( registers ) ) );
      document.push_back( envelope( *mirror, advertisedJson( advertised ) ) );
   }
   expectGolden( "registers.txt", text );
   expectGolden( "registers.json", document.dump( 2 ) + '\n' );
   std::istringstream lines( text );
   for ( std::string line; std::getline( lines, line ); )
      EXPECT_LE( line.size(), 80U ) << line;
}

// Upstream state is the one thing that may pass the margin.
TEST_F( Reports, LinesOfIpv4FitATerminal ) {
   std::istringstream lines(
      routesText( view.mirror( "default", Vantu::AddressFamily::ipv4 ), {}, false,
                  ShownRouter::now ) );
   for ( std::string line; std::getline( lines, line ); ) {
      std::string kept = line.substr( 0, line.find( "  upstream joined" ) );
      EXPECT_LE( kept.size(), 80U ) << line;
   }
}

TEST_F( Reports, RoutesAsJson ) {
   auto document = nlohmann::ordered_json::array();
   for ( const auto& mirror : view.all().all() ) {
      document.push_back(
         envelope( *mirror, routesJson( *mirror, {}, ShownRouter::now ) ) );
   }
   expectGolden( "routes.json", document.dump( 2 ) + '\n' );
}

// Each table's instance has a number of its own.
std::string withoutGenerations( std::string text ) {
   constexpr size_t kDigits = 16;
   size_t run = 0;
   for ( size_t at = 0; at < text.size(); ++at ) {
      run = std::isxdigit( text[at] ) != 0 ? run + 1 : 0;
      if ( run != kDigits ) continue;
      text.replace( at + 1 - kDigits, kDigits, "GENERATION" );
      at += std::string( "GENERATION" ).size() - kDigits;
      run = 0;
   }
   return text;
}

TEST_F( Reports, Status ) {
   std::string text;
   auto document = nlohmann::ordered_json::array();
   for ( const auto& mirror : view.all().all() ) {
      text += statusText( *mirror );
      document.push_back( envelope( *mirror, statusJson( *mirror ) ) );
   }
   expectGolden( "status.txt", withoutGenerations( text ) );
   expectGolden( "status.json", withoutGenerations( document.dump( 2 ) ) + '\n' );
}

// Counts that somebody publishes are no longer unknown.
TEST_F( Reports, StatusWithCounters ) {
   namespace Brane = Routing::Pim::SparseMode::Brane;
   router.ipv4.tables->routeCounterIs( { { Brane::switching, 0 }, 7 } );
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   EXPECT_NE( statusText( mirror ).find(
                 "unresolved unknown, switching 7, to be deleted unknown" ),
              std::string::npos )
      << statusText( mirror );
   EXPECT_EQ( statusJson( mirror )["switching"], 7 );
   EXPECT_FALSE( statusJson( mirror ).contains( "unresolved" ) );
}

// In red there are more counts than rows.
TEST_F( Reports, Histograms ) {
   for ( int source = 1; source <= 20; ++source ) {
      for ( int group = 1; group <= source; ++group ) {
         router.red.vrf().sg( "198.51.100." + std::to_string( source ),
                              "239.1.2." + std::to_string( group ) );
      }
   }
   router.red.publish();
   View later( router.root.path() );
   std::string text;
   for ( const auto& mirror : later.all().all() )
      text += histogramText( *mirror ) + '\n';
   expectGolden( "histogram.txt", text );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   expectGolden( "histogram.json",
                 envelope( mirror, histogramJson( mirror ) ).dump( 2 ) + '\n' );
}

TEST_F( Reports, SelectByVrfAndFamily ) {
   View red( router.root.path(), "red" );
   ASSERT_EQ( red.all().all().size(), 1U );
   EXPECT_EQ( red.all().all()[0]->vrf(), "red" );
   Mirrors ipv6( { router.root.path(), "all", Vantu::AddressFamily::ipv6 } );
   ASSERT_EQ( ipv6.all().size(), 1U );
   EXPECT_EQ( ipv6.all()[0]->family, Vantu::AddressFamily::ipv6 );
   EXPECT_TRUE( Mirrors( { router.root.path(), "blue", {} } ).all().empty() );
}

}
}
