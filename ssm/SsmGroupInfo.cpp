#include "ssm/SsmGroupInfo.h"

#include "platform/entity/Factory.h"
#include "platform/net/VrfName.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode {

MOX_TRACE_FACILITY( trace, "Pimsm::SsmGroupSm" )

MOX_ENTITY_TYPE( SsmGroupInfo, PIMSM_SSM_GROUP_INFO_ATTRIBUTES )

MOX_FACTORY( SsmGroupInfo, []( Mox::StringView family ) {
   return ssmGroupInfoFactory( Mox::stringToValue<Vantu::AddressFamily>( family ) );
} )

Mox::Ptr<SsmGroupInfo> ssmGroupInfoFactory( Vantu::AddressFamily family ) {
   return Mox::newEntity<SsmGroupInfo>( family );
}

namespace {

constexpr Mox::StringView kTrieName = "trieSsmFilter";
constexpr Mox::StringView kSsmGroup =
   "bool Routing::Pim::SparseMode::SsmGroupInfo::ssmGroup("
   "const Vantu::IpGenAddr&, const Config&) const";

// The beginning of traces. Only here is the name's limit checked.
struct Vrf {
   const Config& config;
};
std::ostream& operator<<( std::ostream& stream, const Vrf& vrf ) {
   return stream << "<Vrf:" << L3::VrfName( vrf.config.vrfName() ) << '>';
}

bool inDefaultRange4( const Vantu::IpGenAddr& group ) {
   static const Vantu::IpGenAddr first( "232.0.0.0" );
   static const Vantu::IpGenAddr last( "232.255.255.255" );
   return first <= group && group <= last;
}

bool inDefaultRange6( const Vantu::IpGenAddr& group ) {
   static const Vantu::IpGenPrefix sourceSpecific( "ff30::/12" );
   const auto& bytes = group.bytes();
   return bytes[2] == 0 && bytes[3] == 0 && sourceSpecific.contains( group );
}

}

SsmGroupInfo::SsmGroupInfo( Vantu::AddressFamily family )
   : addressFamily_( family ) {
   handleInitialized();
}

TrieGen* SsmGroupInfo::newTrie() const {
   return new TrieGen( kTrieName, addressFamily() );
}

Mox::Ptr<TrieGen> SsmGroupInfo::trieIs( Mox::StringView name,
                                        Vantu::AddressFamily family ) {
   auto made = Mox::newEntity<TrieGen>( name, family );
   trie_ = made;
   MOX_NOTIFY( Trie );
   return made;
}

void SsmGroupInfo::handleInitialized() {
   MOX_TRACE( trace, 8,
              "void Routing::Pim::SparseMode::SsmGroupInfo::handleInitialized()" );
   trieIs( kTrieName, addressFamily() );
   initializedIs( true );
}

bool SsmGroupInfo::ssmGroup( const Vantu::IpGenAddr& group,
                             const Config& config ) const {
   MOX_TRACE( trace, 8, Vrf{ config } << kSsmGroup << " for " << group );
   if ( config.ssmFilter() == noSsmRange ) return false;
   if ( config.ssmFilter().empty() ) {
      if ( group.family() == Vantu::AddressFamily::ipv4 ) {
         if ( inDefaultRange4( group ) ) return true;
      } else if ( group.family() == Vantu::AddressFamily::ipv6 ) {
         if ( inDefaultRange6( group ) ) return true;
      } else {
         MOX_TRACE( trace, 7,
                    Vrf{ config } << "ssmGroup(" << group
                                  << "), AddressFamily not supported" );
         return false;
      }
   }
   // Deliberately asked for the default range too, when the trie is empty.
   if ( trie() == nullptr || Vantu::addressBits( group.family() ) == 0 )
      return false;
   if ( trie()->longestMatch( Vantu::IpGenPrefix( group ) ).isNone() ) return false;
   MOX_TRACE( trace, 5,
              Vrf{ config } << kSsmGroup << " LPM for " << group
                            << " returned valid prefix" );
   return true;
}

void SsmGroupInfo::doCleanup() {
   trieDel();
}

}
