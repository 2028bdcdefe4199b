// Captures of real hosts and queriers, replayed packet by packet, against the members
// that an independent listing of their messages implies.
#include "tests/apps/agent/Captures.h"
#include "tests/apps/agent/ReplayedFamily.h"

namespace Agent {
namespace {

// Groups with the time until which they have members: hosts in these captures want all
// sources or none, and their queriers ask with the default times.
class ExpectedMembers {
 public:
   // "192.0.2.7 IGMPv3 Membership Report 239.1.1.1 TO_EX".
   void receive( const std::string& line, double now ) {
      std::istringstream words( line );
      std::string sender, text, group, record;
      words >> sender;
      for ( std::string word; words >> word; ) {
         if ( word.find( '.' ) != std::string::npos ||
              word.find( ':' ) != std::string::npos ) {
            group = word;
            break;
         }
         text += ( text.empty() ? "" : " " ) + word;
      }
      words >> record;
      if ( group == "0.0.0.0" ) return;
      bool query = text.find( "Query" ) != std::string::npos;
      bool leave = record == "TO_IN" || text.find( "Leave" ) != std::string::npos ||
                   text.find( "Done" ) != std::string::npos;
      if ( !query && refused( group ) ) return;
      if ( query || leave ) {
         auto found = until_.find( group );
         if ( found != until_.end() )
            found->second = std::min( found->second, now + 2 );
      } else {
         until_[group] = now + 260;
      }
   }
   std::set<std::string> at( double now ) {
      std::erase_if( until_, [&]( auto& entry ) { return entry.second <= now; } );
      std::set<std::string> out;
      for ( const auto& [group, until] : until_ ) out.insert( group );
      return out;
   }
   uint64_t linkLocal = 0;
   uint64_t unicast = 0;

 private:
   bool refused( const std::string& group ) {
      bool local =
         group.rfind( "224.0.0.", 0 ) == 0 || group.rfind( "ff02:", 0 ) == 0;
      int first = std::atoi( group.c_str() );
      bool multicast = local || ( first >= 224 && first < 240 );
      linkLocal += local ? 1 : 0;
      unicast += multicast ? 0 : 1;
      return local || !multicast;
   }

   std::map<std::string, double> until_;
};

// `most`: groups at the fullest, counted by hand in the listing.
struct Row {
   const char* capture;
   const char* router;
   size_t most;
};

const Row kRows[] = { { "igmpv2.pcap", "192.168.1.99", 4 },
                      { "igmpv2-v3.pcap", "192.168.1.99", 1 },
                      { "igmpv3-asm.pcap", "20.0.1.99", 3 },
                      { "igmpv3-report-sources.pcap", "192.0.2.1", 0 },
                      { "mldv1.pcap", "fe80::99", 0 } };

TEST( ReplayedMembership, LeavesTheMembersThatTheListingImplies ) {
   auto directory = capturesDirectory();
   SKIP_WITHOUT_CAPTURES( directory );
   auto listed = listedMemberships( *directory );
   for ( const Row& row : kRows ) {
      ReplayedFamily router( ReplayedFamily::configFor( row.router ) );
      auto members = [&] {
         std::set<std::string> out;
         for ( const auto& route : router.family.model().route() ) {
            if ( route.routeIntf( Vantu::IntfId( "eth0" ) )
                    ->localReceiverInclude() )
               out.insert( valueToStrep( route.key().group ) );
         }
         return out;
      };
      ExpectedMembers expected;
      size_t most = 0;
      router.play(
         *directory / row.capture, [&]( int number, const Replay::Frame& frame ) {
            IpPacket packet;
            Message message;
            ASSERT_EQ( decodeFrame( frame.link, frame.bytes, packet ), notDropped );
            ASSERT_EQ( decodeMessage( packet, message ), notDropped );
            router.family.receive( Vantu::IntfId( "eth0" ), packet, message );
            for ( const std::string& line : listed[row.capture][number] )
               expected.receive( line, frame.elapsed );
            ASSERT_EQ( members(), expected.at( frame.elapsed ) );
            most = std::max( most, members().size() );
         } );
      EXPECT_EQ( most, row.most ) << row.capture;
      EXPECT_EQ( router.counters.refusedCount( linkLocalGroup ),
                 expected.linkLocal );
      EXPECT_EQ( router.counters.refusedCount( notMulticast ), expected.unicast );
      router.real.runUntil( router.real.now() + 261 );
      EXPECT_EQ( members(), std::set<std::string>() ) << row.capture;
   }
}

}
}
