// Decoded messages in the dissector's words, as in the captures' listings.
#pragma once

#include <fmt/format.h>

#include <string>
#include <vector>

#include "packet/Message.h"

namespace Router {

inline std::string textOf( const PimHello& hello ) {
   std::string out;
   if ( hello.holdtime ) out += fmt::format( " hold={}", *hello.holdtime );
   if ( hello.drPriority ) out += fmt::format( " dr={}", *hello.drPriority );
   if ( hello.generationId ) out += fmt::format( " gen={}", *hello.generationId );
   if ( hello.lanPruneDelay )
      out += fmt::format( " prop={} ovr={}", hello.lanPruneDelay->propagationDelay,
                          hello.lanPruneDelay->overrideInterval );
   return out.substr( out.empty() ? 0 : 1 );
}

inline std::string textOf( const PimJoinPrune& message ) {
   std::string out = fmt::format(
      "up={} hold={}", valueToStrep( message.upstreamNeighbor ), message.holdtime );
   for ( const JoinPruneGroup& group : message.groups ) {
      for ( const auto* sources : { &group.joins, &group.prunes } ) {
         for ( const EncodedSource& source : *sources ) {
            std::string flags = std::string( source.sparse ? "S" : "" ) +
                                ( source.wildcard ? "W" : "" ) +
                                ( source.rpt ? "R" : "" );
            out += fmt::format( " {}({}/{},{}/{}){}",
                                sources == &group.joins ? 'J' : 'P',
                                valueToStrep( source.address ), source.maskLength,
                                valueToStrep( group.address ), group.maskLength,
                                flags.empty() ? "-" : flags );
         }
      }
   }
   return out;
}

inline std::string textOf( const PimRegister& message ) {
   return fmt::format(
      "null={} border={} inner={}>{}", message.nullRegister ? "Yes" : "No",
      message.border ? "Yes" : "No", valueToStrep( message.source ),
      valueToStrep( message.group ) );
}

inline std::string textOf( const PimRegisterStop& message ) {
   return fmt::format( "group={}/{} source={}", valueToStrep( message.group ),
                       message.maskLength, valueToStrep( message.source ) );
}

inline std::string textOf( const PimAssert& message ) {
   return fmt::format( "group={}/{} source={} rpt={} pref={} metric={}",
                       valueToStrep( message.group ), message.maskLength,
                       valueToStrep( message.source ),
                       message.rptBit ? "True" : "False", message.preference,
                       message.metric );
}

inline std::string textOf( const std::monostate& ) {
   return "not decoded";
}

inline std::string textOf( const PimMessage& message ) {
   return std::visit( []( const auto& body ) { return textOf( body ); },
                      message.body );
}

// A line for each record: "192.0.2.1 IGMPv3 Membership Report 239.1.1.1 TO_EX 192.0.2.7".
inline std::vector<std::string> linesOf( const IpPacket& packet,
                                         const MembershipMessage& message ) {
   static const char* const kRecords[] = { "IS_IN", "IS_EX", "TO_IN",
                                           "TO_EX", "ALLOW", "BLOCK" };
   auto line = [&]( const std::string& name, const Vantu::IpGenAddr& group,
                    const std::string& record,
                    const std::vector<Vantu::IpGenAddr>& sources ) {
      std::string out = fmt::format( "{} {} {} {}", valueToStrep( packet.source ),
                                     name, valueToStrep( group ), record );
      for ( const auto& source : sources ) out += " " + valueToStrep( source );
      return out;
   };
   if ( auto* query = std::get_if<MembershipQuery>( &message ) )
      return { line( fmt::format( "IGMPv{} Membership Query", query->version ),
                     query->group, "", query->sources ) };
   const auto& report = std::get<MembershipReport>( message );
   std::vector<std::string> lines;
   for ( const MembershipRecord& record : report.records ) {
      bool leaves = record.type == toInclude;
      std::string name =
         leaves ? "Multicast Listener Done" : "Multicast Listener Report";
      if ( packet.family() == Vantu::AddressFamily::ipv4 && report.version == 2 )
         name = leaves ? "IGMPv2 Leave Group" : "IGMPv2 Membership Report";
      if ( report.version == 3 ) name = "IGMPv3 Membership Report";
      lines.push_back( line( name, record.group,
                             report.version == 3 ? kRecords[record.type] : "",
                             record.sources ) );
   }
   return lines;
}

}
