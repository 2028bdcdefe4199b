// The tool's output for the shown router, word for word.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "apps/json/RegisterJson.h"
#include "apps/json/RouteJson.h"
#include "apps/json/RpJson.h"
#include "apps/json/YangData.h"
#include "apps/show/metrics/MetricsReport.h"
#include "apps/show/reports/CheckReport.h"
#include "apps/show/reports/Explain.h"
#include "apps/show/reports/HistogramReport.h"
#include "apps/show/reports/InterfaceReport.h"
#include "apps/show/reports/MemberReport.h"
#include "apps/show/reports/NeighborReport.h"
#include "apps/show/reports/RegisterReport.h"
#include "apps/show/reports/RpReport.h"
#include "apps/show/reports/StatusReport.h"
#include "apps/show/reports/Why.h"
#include "apps/show/text/Fold.h"
#include "apps/show/text/RouteText.h"
#include "tests/apps/mirror/Published.h"
#include "tests/support/Damage.h"

namespace Show {
namespace {

// Compares the unfolded text. UPDATE_GOLDEN=1 in the environment writes the files
// anew.
void expectGolden( const char* name, const std::string& printed ) {
   const std::string text = folded( printed, noFold );
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
         out +=
            routesText( *mirror, filter, { .detail = detail }, ShownRouter::now );
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

// Of an agent that publishes nothing of itself, and of one that does.
TEST_F( Reports, Why ) {
   std::string text;
   for ( const bool all : { false, true } ) {
      if ( all ) router.publishInterfaces();
      if ( all ) router.publishGroups();
      View later( router.root.path() );
      for ( const char* where :
            { "eth3", "eth2", "eth8", "eth9", "eth4", "eth1", "" } ) {
         const std::string_view name = where;
         const char* group = name == "eth4"   ? "239.0.0.1"
                             : name == "eth1" ? "ff0e::db8:1"
                                              : "239.1.2.3";
         const Receiver receiver{ SmTest::addr( group ),
                                  {},
                                  SmTest::intfId( where ),
                                  SmTest::addr( "192.0.2.131" ) };
         const Answer answer =
            whyOf( later.all(), { receiver }, { {}, {}, ShownRouter::now } )[0];
         text += whyText( answer, receiver ) + '\n';
         if ( all ) text += whyJson( answer, receiver ).dump( 2 ) + '\n';
      }
   }
   expectGolden( "why.txt", text );
}

// With the agent's interfaces; all routes of a group, and a join that waits for its
// source tree. Then without them, and a macro.
TEST_F( Reports, OutgoingLists ) {
   router.publishInterfaces();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   std::string text;
   for ( const auto& [source, group] : { std::pair( "0.0.0.0", "239.1.2.3" ),
                                         { "198.51.100.7", "239.1.2.3" },
                                         { "198.51.100.9", "239.1.2.3" },
                                         { "203.0.113.9", "239.0.0.1" } } ) {
      Question question;
      question.route = SmTest::sgKey( source, group );
      text += explainText( mirror, question, ShownRouter::now ) + '\n';
   }
   expectGolden( "explain.txt", text );
   Question question;
   question.route = SmTest::sgKey( "198.51.100.7", "239.1.2.3" );
   question.intfId = Vantu::IntfId( "eth3" );
   expectGolden( "explain.json", explainJson( mirror, question ).dump( 2 ) + '\n' );
   const Mirror& unknown = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   text = explainText( unknown, question, ShownRouter::now ) + '\n';
   question.macro = "lostAssertSg";
   question.all = true;
   text += explainText( unknown, question, ShownRouter::now );
   expectGolden( "explain-macro.txt", text );
}

// Neighbours, RPs and members, and the RP of each kind of group.
TEST_F( Reports, Lists ) {
   router.publishInterfaces();
   router.publishGroups();
   router.ipv4.vrf().sg( "192.0.2.7", "232.0.0.7" ).intf( "eth2" ).include();
   router.ipv4.publish();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   constexpr double now = ShownRouter::now;
   // The first host left again. The third one asks for a source of its own.
   std::vector<Logged> log;
   for ( const auto& [kind, host, source] :
         { std::tuple( ::Published::memberCame, "192.0.2.131", "0.0.0.0" ),
           { ::Published::memberGone, "192.0.2.131", "0.0.0.0" },
           { ::Published::memberCame, "192.0.2.133", "0.0.0.0" },
           { ::Published::memberCame, "192.0.2.135", "198.51.100.7" } } ) {
      ::Published::Event& event = log.emplace_back().event;
      event.kind = kind;
      event.ipVersion = 4;
      event.vrf = ::Published::Text<104>( "default" );
      event.intf = SmTest::intfId( "eth3" );
      event.group = SmTest::addr( "239.1.2.3" );
      event.source = SmTest::addr( source );
      event.address = SmTest::addr( host );
   }
   const Members members = selectMembers( mirror, {}, log );
   std::string text = neighborsText( selectNeighbors( mirror, {} ), now ) + '\n' +
                      membersText( mirror, members, now ) + '\n' +
                      rpsText( selectRps( mirror, {} ) ) + '\n';
   for ( const char* group : { "239.1.10.1", "232.0.0.7", "238.1.1.1" } )
      text += groupRpText( groupRp( mirror, SmTest::addr( group ) ) ) + '\n';
   expectGolden( "lists.txt", text );
   const nlohmann::ordered_json document = {
      neighborsJson( selectNeighbors( mirror, {} ), now ),
      membersJson( members, now ), rpsJson( selectRps( mirror, {} ) ) };
   expectGolden( "lists.json", document.dump( 2 ) + '\n' );
   const Mirror& unknown = later.mirror( "red", Vantu::AddressFamily::ipv4 );
   EXPECT_FALSE( selectNeighbors( unknown, {} ).known );
   EXPECT_FALSE( selectRps( unknown, {} ).known );
}

TEST_F( Reports, InterfacesAndCheck ) {
   router.publishInterfaces();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   router.publishProcess();
   View agents( router.root.path() );
   const Interfaces interfaces =
      interfacesOf( mirror, {}, agents.all().agentProcess() );
   constexpr double now = ShownRouter::now;
   const Checked checked = check( mirror, {} );
   expectGolden( "interfaces.txt", interfacesText( mirror, interfaces, true, now ) +
                                      '\n' + checkText( mirror, checked ) );
   expectGolden( "interfaces.json", envelope( mirror, "pimsm-state:interface-total",
                                              interfacesJson( interfaces, now ) )
                                          .dump( 2 ) +
                                       '\n' + checkJson( checked ).dump( 2 ) +
                                       '\n' );
   RouteFilter filter;
   filter.iface = "eth5";
   EXPECT_EQ(
      interfacesText( view.mirror( "default", Vantu::AddressFamily::ipv4 ),
                      interfacesOf( mirror, filter, view.all().agentProcess() ),
                      false, now ),
      "vrf default ipv4: 1 interface, agent running\n\n"
      "name  DR       nbrs in join memb won lost fwd  state    address\n"
      "eth5  unknown     -  0    1    0   0    0   2  unknown  unknown\n" );
}

// Each kind of fault, and no others.
TEST_F( Reports, CheckFindsWhatContradictsItself ) {
   PublishedSide other( router.clock, router.root.path(),
                        Vantu::AddressFamily::ipv4, "blue" );
   auto wc = other.vrf().wc( "239.1.2.3" ).rpf( "eth0" );
   wc.intf( "eth1" ).joined()->forwardIs( true );
   wc.intf( "eth0" ).joined();  // the incoming interface: does not forward even so
   wc.intf( "eth2" ).include();
   other.publish();
   auto found = [&] {
      View blue( router.root.path(), "blue" );
      std::string kinds;
      const Checked checked = check( *blue.all().all()[0], {} );
      for ( const Finding& finding : checked.findings )
         kinds += std::string( finding.kind ) + ' ' +
                  std::string( finding.intfId.name() ) + '\n';
      return kinds + std::to_string( checked.undecided );
   };
   EXPECT_EQ( found(), "1" ) << "who is DR on eth2 is not known";
   wc.intf( "eth1" )->forwardIs( false );
   other.publish();
   EXPECT_EQ( found(), "forward-differs eth1\n1" );
   wc.intf( "eth1" )->forwardIs( true );
   other.publish();
   other.vrf().wc( "239.1.2.4" );
   other.publish();
   EXPECT_EQ( found(), "unresolved-rpf \n1" );
   other.vrf()->routeDel( SmTest::wcKey( "239.1.2.4" ) );
   const char* const impossible[][2] = { { "2001:db8::1", "ff0e::1" },
                                         { "2001:db8::1", "239.1.2.3" },
                                         { "192.0.2.1", "198.51.100.1" },
                                         { "239.1.2.3", "239.1.2.3" } };
   for ( const auto& [source, group] : impossible ) {
      other.vrf().sg( source, group ).rpf( "eth0" );
      other.publish();
      EXPECT_EQ( found(), "impossible-address \n1" ) << source << ' ' << group;
      other.vrf()->routeDel( SmTest::sgKey( source, group ) );
   }
   other.tables->routeIntfIs( Routing::Pim::SparseMode::Brane::Intf(
      { SmTest::wcKey( "239.1.2.5" ), SmTest::intfId( "eth7" ) } ) );
   other.publish();
   EXPECT_EQ( found(), "no-route eth7\n1" );
   other.tables->routeIntfDel(
      { SmTest::wcKey( "239.1.2.5" ), SmTest::intfId( "eth7" ) } );
   Mox::Test::breakStamp( router.root.path() + '/' + other.path + "/routeIntf",
                          Routing::Pim::RouteIntfKey{ SmTest::wcKey( "239.1.2.3" ),
                                                      SmTest::intfId( "eth0" ) } );
   EXPECT_EQ( found(), "unverifiable \n1" );
   std::filesystem::resize_file(
      router.root.path() + '/' + other.registers->name() + "/registerOif", 100 );
   EXPECT_EQ( found(), "unverifiable \nunreadable \n1" );
   View blue( router.root.path(), "blue" );
   const std::string status = statusText( *blue.all().all()[0] );
   EXPECT_NE( status.find( "registerOif         cannot be read: " ),
              std::string::npos )
      << status;
}

// Of the DR: another one than acts, none that acts, one that has gone.
TEST_F( Reports, CheckFindsLinksThatNobodyOrTwoServe ) {
   router.publishInterfaces();
   router.ipv4.vrf().wc( "239.5.5.5" ).rpf( "eth0" ).intf( "eth2" ).include();
   router.ipv4.vrf().wc( "239.5.5.6" ).rpf( "eth0" ).intf( "eth0" ).include();
   router.ipv4.publish();
   for ( const auto& [name, dr] : { std::pair( "eth1", "192.0.2.4" ),
                                    { "eth2", "198.51.100.9" },
                                    { "eth3", "192.0.2.131" } } ) {
      ::Published::Interface record;
      router.agent->interface().find( SmTest::intfId( name ), record );
      record.dr = SmTest::addr( dr );
      router.agent->interfaceIs( record );
   }
   View later( router.root.path() );
   std::set<std::string> found;
   for ( const Finding& finding :
         check( later.mirror( "default", Vantu::AddressFamily::ipv4 ), {} )
            .findings )
      if ( finding.kind.find( "-dr" ) < 4 || finding.kind == "unserved" )
         found.insert( finding.kind + ' ' + std::string( finding.intfId.name() ) );
   EXPECT_EQ( found,
              ( std::set<std::string>{ "no-dr eth1", "no-dr eth2", "no-dr eth3",
                                       "two-drs eth3", "unserved eth2" } ) );
}

TEST_F( Reports, TheRpHasNoWayToItselfToBeMissed ) {
   router.publishInterfaces();
   router.publishGroups();  // 192.0.2.9 is the RP of 239.0.0.0/8
   router.agent->rpIs(
      { { SmTest::addr( "239.0.0.0" ), 8 }, SmTest::addr( "192.0.2.9" ), true } );
   router.ipv4.vrf().wc( "239.7.7.7" ).rpTree();
   router.ipv4.vrf().wc( "239.1.10.7" ).rpTree();
   router.ipv4.vrf().wc( "238.7.7.7" ).rpTree();
   auto attached = router.ipv4.vrf().sg( "192.0.2.77", "239.7.7.7" ).spTree();
   attached.rpf( SmTest::rpfBy( "eth0", "192.0.2.77" ) ).attached();
   router.ipv4.publish();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   RouteFilter filter;
   filter.kind = "wc";
   std::string findings;
   for ( const Finding& finding : check( mirror, filter ).findings ) {
      if ( finding.kind == std::string( "unresolved-rpf" ) )
         findings += finding.text + '\n';
   }
   EXPECT_EQ( findings, "its group has no RP\nno way to its RP 192.0.2.254\n" );
   filter = {};
   filter.group = prefixArgument( "239.7.7.7" );
   const std::string text = routesText( mirror, filter, {}, ShownRouter::now );
   EXPECT_NE( text.find( "shared tree  from its RP, this router\n" ),
              std::string::npos )
      << text;
   const auto entries = routeEntries( mirror, filter, ShownRouter::now );
   ASSERT_EQ( entries.size(), 2U );
   EXPECT_EQ( entries[1]["incoming-interface"], "eth0" );
   EXPECT_FALSE( entries[1].contains( "rpf-neighbor" ) ) << entries[1];
}

// A VRF that goes gives no complaint; one that comes is waited for.
TEST_F( Reports, OfVrfsThatComeAndGo ) {
   Mirrors mirrors( { router.root.path(), "all", {} } );
   const std::string root = router.root.path() + '/';
   router.red.manager.removeTables( router.red.path );
   EXPECT_TRUE( mirrors.load().empty() );
   EXPECT_EQ( mirrors.all().size(), 2U );
   const std::string table = root + router.ipv6.path + "/routeIntf";
   std::filesystem::rename( table, table + ".away" );
   Mirrors early( { router.root.path(), "all", {} } );
   ASSERT_EQ( early.all()[1]->problem().kind, Mirror::Problem::missing );
   std::filesystem::rename( table + ".away", table );
   EXPECT_TRUE( early.load().empty() );
   EXPECT_EQ( early.all().size(), 2U );
}

TEST_F( Reports, TheLastWriteIsTheLastRing ) {
   namespace fs = std::filesystem;
   const View own( router.root.path(), "default" );
   const Mirror& mirror = own.mirror( "default", Vantu::AddressFamily::ipv4 );
   fs::last_write_time(
      router.root.path() + '/' + router.ipv4.path + "/writer.bell",
      fs::file_time_type::clock::now() - std::chrono::hours( 1 ) );
   EXPECT_EQ( spanText( mirror.sinceLastWrite().value_or( 0 ) ).substr( 0, 2 ),
              "1h" );
}

TEST_F( Reports, RegistersAndAdvertised ) {
   std::string text;
   for ( const auto& mirror : view.all().all() )
      text += registersText( *mirror, selectRegisters( *mirror, {} ) ) + '\n' +
              advertisedText( *mirror, selectAdvertised( *mirror, {} ) ) + '\n';
   expectGolden( "registers.txt", text );
   const Mirror& mirror = view.mirror( "default", Vantu::AddressFamily::ipv4 );
   const nlohmann::ordered_json document = {
      registersJson( selectRegisters( mirror, {} ) ),
      advertisedJson( selectAdvertised( mirror, {} ) ) };
   expectGolden( "registers.json", document.dump( 2 ) + '\n' );
}

// The longest names and addresses, on a terminal of 80 columns.
TEST_F( Reports, OfWideThingsOnANarrowTerminal ) {
   constexpr auto kIpv6 = Vantu::AddressFamily::ipv6;
   constexpr const char *kVrf = "customer-blue-multicast-east",
                        *kGroup = "ff3e:30:2001:db8:85a3:1234:8000:2",
                        *kSource = "2001:db8:85a3:1234:5678:8a2e:370:7334";
   PublishedSide wide( router.clock, router.root.path(), kIpv6, kVrf );
   auto wc = wide.vrf().wc( kGroup ).rpTree().upJoined();
   wc.rpf( SmTest::rpfBy( "Port-Channel1200.3000", "fe80::21b:21ff:fe5c:1234" ) );
   wc->creationTimeIs( ShownRouter::now - 123456 );
   wc.intf( "Ethernet13/1/24.4001" )
      .include()
      .wonAssert( "[*] fe80::21b:21ff:fe5c:4321 [2147483647/4294967295]" )
      ->lastAssertActionIs( 1 );
   auto sg = wide.vrf().sg( kSource, kGroup ).spTree().upJoined();
   sg.rpf( SmTest::rpfBy( "Port-Channel1200.3000", kSource ) );
   auto lost = sg.intf( "Ethernet13/1/24.4001" ).prunePending().exclude();
   lost.rptPruned().lostAssertTo( "fe80::21b:21ff:fe5c:4321" );
   lost->lastJoinReceivedIs( ShownRouter::now - 99 );
   lost->lastRptPruneReceivedIs( ShownRouter::now - 99999 );
   lost->lastAssertActionIs( 6 );
   sg.intf( "Ethernet13/1/24.4003" ).joined()->lastAssertActionIs( 7 );
   namespace Sm = Routing::Pim::SparseMode;
   const Sm::InternalRouteKey key( SmTest::sgKey( kSource, kGroup ) );
   wide.registers->drDiscoveredSgIs( key );
   wide.registers->anycastDiscoveredSgIs( key );
   wide.advertised->collIs( { key.key, SmTest::addr( kSource ), true } );
   auto agent = ::Published::FamilyStatus::mount(
      wide.manager,
      ::Published::FamilyStatus::mountPath( kIpv6, L3::VrfName( kVrf ) ),
      ::Brane::tableWriter );
   for ( const char* name : { "Ethernet13/1/24.4001", "Port-Channel1200.3000" } )
      agent->interfaceIs( { SmTest::intfId( name ),
                            SmTest::addr( "fe80::21b:21ff:fe5c:99" ), 64, false,
                            12 } );
   const auto port = SmTest::intfId( "Port-Channel1200.3000" );
   const auto far = SmTest::addr( "fe80::21b:21ff:fe5c:1234" );
   agent->neighborIs( { { port, far, 0 }, true, 4294967295, true, 1 } );
   agent->neighborAddressIs( { { port, far, SmTest::addr( kSource ) } } );
   wide.publish();
   View later( router.root.path(), kVrf );
   const Mirror& mirror = later.mirror( kVrf, kIpv6 );
   Question question;
   question.route = key.key;
   std::string text =
      routesText( mirror, {}, { .detail = true }, ShownRouter::now ) + '\n' +
      explainText( mirror, question, ShownRouter::now ) + '\n' +
      checkText( mirror, check( mirror, {} ) ) + '\n' +
      interfacesText( mirror,
                      interfacesOf( mirror, {}, later.all().agentProcess() ), true,
                      ShownRouter::now ) +
      '\n' + neighborsText( selectNeighbors( mirror, {} ), ShownRouter::now ) +
      membersText( mirror, selectMembers( mirror, {} ), ShownRouter::now ) + '\n' +
      registersText( mirror, selectRegisters( mirror, {} ) ) +
      advertisedText( mirror, selectAdvertised( mirror, {} ) ) + '\n' +
      histogramText( mirror ) + '\n';
   question.intfId = SmTest::intfId( "Ethernet13/1/24.4001" );
   question.macro = "lostAssertSg";
   text += explainText( mirror, question, ShownRouter::now );
   text = folded( text, 80 );
   expectGolden( "narrow.txt", text );
   std::istringstream lines( text );
   for ( std::string line; std::getline( lines, line ); )
      EXPECT_LE( line.size(), 80U ) << line;
}

// Of a route with an interface in each state, and of one without a state of its own.
TEST_F( Reports, RoutesAsJson ) {
   router.publishInterfaces();
   router.publishGroups();
   View later( router.root.path() );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   RouteFilter filter;
   filter.source = prefixArgument( "198.51.100.0/24" );
   expectGolden( "routes.json",
                 envelope( mirror, "topology-tree-info",
                           routesJson( mirror, routeEntries( mirror, filter,
                                                             ShownRouter::now ) ) )
                       .dump( 2 ) +
                    '\n' );
}

// The generations are random.
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

// The age of the last write is real.
std::string withoutAges( const std::string& text ) {
   return std::regex_replace(
      std::regex_replace( text, std::regex( "last write    [0-9a-z]+ ago" ),
                          "last write    AGE ago" ),
      std::regex( "\"since-last-write\": \"[0-9]+\"" ),
      "\"since-last-write\": \"AGE\"" );
}

TEST_F( Reports, Status ) {
   auto forwarding = ::Published::MfibStatus::mount(
      router.ipv4.manager,
      ::Published::MfibStatus::mountPath( Vantu::AddressFamily::ipv4,
                                          L3::VrfName( "default" ) ),
      ::Brane::tableWriter, 1000 );
   std::string text;
   View later( router.root.path() );
   for ( const auto& mirror : later.all().all() ) text += statusText( *mirror );
   expectGolden( "status.txt", withoutAges( withoutGenerations( text ) ) );
   const Mirror& mirror = later.mirror( "default", Vantu::AddressFamily::ipv4 );
   const auto document =
      envelope( mirror, "pimsm-state:status", statusJson( mirror ) );
   expectGolden( "status.json",
                 withoutAges( withoutGenerations( document.dump( 2 ) ) ) + '\n' );
}

// Published counts are no longer unknown.
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

TEST_F( Reports, Metrics ) {
   router.publishInterfaces();
   router.publishProcess();
   router.publishTraffic();
   Mirrors mirrors( { router.root.path(), "default", Vantu::AddressFamily::ipv4 } );
   mirrors.load();
   expectGolden( "metrics.txt",
                 withoutGenerations( metricsText( mirrors, "1.2.3" ) ) );
}

// In red there are more different counts than rows.
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
   expectGolden( "histogram.json", envelope( mirror, "pimsm-state:histogram",
                                             histogramJson( mirror ) )
                                         .dump( 2 ) +
                                      '\n' );
}

}
}
