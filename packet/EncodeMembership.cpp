#include <algorithm>
#include <bit>
#include <cmath>

#include "packet/Checksum.h"
#include "packet/Encode.h"
#include "packet/Numbers.h"
#include "packet/Writer.h"

namespace Router {
namespace {

using Vantu::AddressFamily;
using Vantu::IpGenAddr;

// RFC 3376, 4.1.1 and 4.1.7; RFC 3810, 5.1.3 and 5.1.9: the code of that many bits
// for the largest time that does not exceed this one.
uint32_t encodeTime( double time, unsigned bits ) {
   const unsigned mantissaBits = bits - 4;
   const uint32_t plain = 1U << ( bits - 1 );
   const uint32_t most = ( ( 2U << mantissaBits ) - 1 ) << 10;
   auto units = static_cast<uint32_t>(
      std::clamp( std::floor( time + 0.5 ), 0.0, static_cast<double>( most ) ) );
   if ( units < plain ) return units;
   const unsigned shift =
      static_cast<unsigned>( std::bit_width( units ) ) - 1 - mantissaBits;
   const uint32_t mantissa = ( units >> shift ) & ( ( 1U << mantissaBits ) - 1 );
   return plain | ( shift - 3 ) << mantissaBits | mantissa;
}

// The code in versions without an exponent.
uint32_t plainTime( double units, uint32_t most ) {
   return static_cast<uint32_t>(
      std::clamp( std::floor( units + 0.5 ), 0.0, static_cast<double>( most ) ) );
}

class Encoder {
 public:
   explicit Encoder( AddressFamily family )
      : family_( family ), ipv4_( family == AddressFamily::ipv4 ) {}

   void operator()( const MembershipReport& report );
   void operator()( const MembershipQuery& query );

   std::vector<uint8_t> take( const IpGenAddr& source,
                              const IpGenAddr& destination );

 private:
   // In IGMP the code is a byte before the checksum. In MLD it is two bytes behind
   // the checksum, followed by two reserved bytes.
   void head( uint8_t igmpType, uint8_t mldType, uint32_t code ) {
      out_.u8( ipv4_ ? igmpType : mldType ).u8( ipv4_ ? code : 0 ).u16( 0 );
      if ( !ipv4_ && mldType != mldReport2 ) out_.u16( code ).u16( 0 );
   }
   void oldReport( const MembershipReport& report );

   AddressFamily family_;
   bool ipv4_;
   Writer out_;
};

void Encoder::operator()( const MembershipReport& report ) {
   if ( report.version < 3 ) return oldReport( report );
   head( igmpReport3, mldReport2, 0 );
   out_.u16( 0 ).u16( static_cast<uint32_t>( report.records.size() ) );
   for ( const MembershipRecord& record : report.records ) {
      out_.u8( record.type + 1U ).u8( 0 );
      out_.u16( static_cast<uint32_t>( record.sources.size() ) );
      out_.address( record.group, family_ );
      for ( const IpGenAddr& each : record.sources ) out_.address( each, family_ );
   }
}

void Encoder::oldReport( const MembershipReport& report ) {
   const MembershipRecord& record = report.records.front();
   if ( record.type == toInclude ) {
      head( igmpLeave, mldDone, 0 );
   } else {
      head( report.version == 1 ? igmpReport1 : igmpReport2, mldReport1, 0 );
   }
   out_.address( record.group, family_ );
}

void Encoder::operator()( const MembershipQuery& query ) {
   const double units = query.maxResponse * ( ipv4_ ? 10 : 1000 );
   if ( query.version < 3 ) {
      const uint32_t code = plainTime( units, ipv4_ ? 0xff : 0xffff );
      // In IGMP, code 0 means version 1.
      const uint32_t least = ipv4_ ? 1 : 0;
      head( igmpQuery, mldQuery, query.version == 1 ? 0 : std::max( code, least ) );
      out_.address( query.group, family_ );
      return;
   }
   head( igmpQuery, mldQuery, encodeTime( units, ipv4_ ? 8 : 16 ) );
   out_.address( query.group, family_ );
   // A value that does not fit is sent as zero (RFC 3376, 4.1.6).
   out_.u8( ( query.suppress ? 8U : 0U ) |
            ( query.robustness <= 7 ? query.robustness : 0U ) );
   out_.u8( encodeTime( query.interval, 8 ) );
   out_.u16( static_cast<uint32_t>( query.sources.size() ) );
   for ( const IpGenAddr& each : query.sources ) out_.address( each, family_ );
}

std::vector<uint8_t> Encoder::take( const IpGenAddr& source,
                                    const IpGenAddr& destination ) {
   Checksum checksum;
   if ( !ipv4_ )
      addPseudoHeader( checksum, source, destination, out_.size(), icmp6Protocol );
   checksum.add( out_.written() );
   out_.setU16( 2, checksum.value() );
   return out_.take();
}

}

std::vector<uint8_t> encodeMembership( const MembershipMessage& message,
                                       const IpGenAddr& source,
                                       const IpGenAddr& destination ) {
   const auto* report = std::get_if<MembershipReport>( &message );
   if ( report != nullptr && report->version < 3 && report->records.empty() )
      return {};
   Encoder encoder( destination.family() );
   std::visit( encoder, message );
   return encoder.take( source, destination );
}

}
