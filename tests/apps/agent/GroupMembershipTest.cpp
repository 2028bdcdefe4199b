#include "apps/agent/engine/GroupMembership.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/apps/agent/MachineRun.h"

namespace Agent {
namespace {

using Vantu::IpGenAddr;

// "A" stands for 192.0.2.65, and so on.
IpGenAddr source( char letter ) {
   return IpGenAddr( "192.0.2." + std::to_string( int( letter ) ) );
}

// "in(A,B)" wants these sources, "ex(A;B)" all but B, and A in particular.
std::string stateOf( const GroupMembership& machine ) {
   if ( machine.empty() ) return "-";
   std::string requested, excluded;
   for ( const auto& [address, wanted] : machine.sources() ) {
      std::string& list = wanted ? requested : excluded;
      if ( !list.empty() ) list += ',';
      list += static_cast<char>( address.bytes()[3] );
   }
   if ( !machine.excludeMode() ) return "in(" + requested + ")";
   return "ex(" + requested + ";" + excluded + ")";
}

// A membership lives for 260 s; what a querier would ask for, for 2 s.
const MachineRow kRows[] = {
   // RFC 3376, 6.4.1 and 6.4.2
   { "IncludeIsIn", "0 isIn A, 10 isIn B",
     "0 in(A), 10 in(A,B), 260 in(B), 270 -" },
   { "IncludeAllow", "0 isIn A, 10 allow A", "0 in(A), 270 -" },
   { "IncludeIsEx", "0 isIn A B, 10 isEx B C",
     "0 in(A,B), 10 ex(B;C), 260 ex(;B,C), 270 -" },
   { "IncludeBlock", "0 isIn A B, 10 block A C", "0 in(A,B), 12 in(B), 260 -" },
   { "IncludeToEx", "0 isIn A B, 10 toEx A C",
     "0 in(A,B), 10 ex(A;C), 12 ex(;A,C), 270 -" },
   { "IncludeToIn", "0 isIn A B, 10 toIn B C",
     "0 in(A,B), 10 in(A,B,C), 12 in(B,C), 270 -" },
   { "IncludeLeave", "0 isIn A, 10 toIn", "0 in(A), 12 -" },
   { "ExcludeAllow", "0 isEx A, 10 allow A B",
     "0 ex(;A), 10 ex(A,B;), 260 in(A,B), 270 -" },
   { "ExcludeIsEx", "0 isEx A, 10 allow B D, 20 isEx A B C",
     "0 ex(;A), 10 ex(B,D;A), 20 ex(B,C;A), 270 ex(C;A,B), 280 -" },
   { "ExcludeBlock", "0 isEx A, 10 block A B",
     "0 ex(;A), 10 ex(B;A), 12 ex(;A,B), 260 -" },
   { "ExcludeToEx", "0 isEx A D, 10 allow B, 20 toEx A C",
     "0 ex(;A,D), 10 ex(B;A,D), 20 ex(C;A), 22 ex(;A,C), 280 -" },
   { "ExcludeToIn", "0 isEx A, 10 allow B, 20 toIn A",
     "0 ex(;A), 10 ex(B;A), 20 ex(A,B;), 22 in(A), 280 -" },
   { "AnotherHostAnswers", "0 isEx, 10 toIn, 11 isEx", "0 ex(;), 271 -" },
   // 7.3.2
   { "Version2Leave", "0 isEx2, 10 toIn2", "0 ex(;), 12 -" },
   { "Version1HostNeverLeaves", "0 isEx1, 10 toIn2", "0 ex(;), 260 -" },
   { "OlderHostHasNoSources", "0 isEx2, 10 block A, 20 toEx A", "0 ex(;), 280 -" },
   { "OlderHostIsForgotten", "0 isEx2, 100 isEx, 300 block A",
     "0 ex(;), 300 ex(A;), 302 ex(;A), 360 -" },
   // Another router asks
   { "QueryOfTheGroup", "0 isEx A, 10 query 5", "0 ex(;A), 15 -" },
   { "QueryOfSources", "0 isIn A B, 10 query 5 A C", "0 in(A,B), 15 in(B), 260 -" },
   { "QueryNeverExtends", "0 isIn A, 258 query 5 A", "0 in(A), 260 -" },
};

void act( GroupMembership& machine, const MachineStep& step ) {
   std::vector<IpGenAddr> sources;
   for ( const std::string& word : step.words )
      sources.push_back( source( word[0] ) );
   if ( step.event == "query" )
      return machine.handleQuery( sources, step.times[0] );
   std::string event = step.event;
   uint8_t version = 3;
   if ( std::isdigit( event.back() ) != 0 ) {
      version = static_cast<uint8_t>( event.back() - '0' );
      event.pop_back();
   }
   const std::string names[] = { "isIn", "isEx", "toIn", "toEx", "allow", "block" };
   auto type = static_cast<MembershipRecordType>(
      std::find( std::begin( names ), std::end( names ), event ) - names );
   machine.receive( { type, IpGenAddr( "233.252.0.1" ), sources }, version );
}

TEST( GroupMembership, FollowsTheTables ) {
   for ( const MachineRow& row : kRows ) {
      SCOPED_TRACE( row.name );
      Mox::TestClock clock;
      MembershipTimes times;
      GroupMembership machine( clock, times, [] {} );
      MachineRun run( clock, [&] { return stateOf( machine ); } );
      run.play( row.script,
                [&]( const MachineStep& step ) { act( machine, step ); } );
      EXPECT_EQ( run.history(), row.history );
   }
}

}
}
