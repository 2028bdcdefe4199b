// The source-specific groups of one VRF and address family (RFC 4607), which must
// not get shared-tree state.
//
// SsmGroupSm fills the trie; the configuration says whether it is used:
//
//    ssmFilter          source-specific groups
//    empty              232.0.0.0/8; ff3x::/32 (RFC 4607, 1)
//    ".no-ssm-range"    none
//    a list's name      what the list permits; none while there is no such list
//
// Notifications of ssmConfigChanged mean that answers may have changed. Event-loop
// thread only.
#pragma once

#include "platform/pim/SparseModeConfig.h"
#include "platform/trie/TrieGen.h"

namespace Routing::Pim::SparseMode {

// The value of ssmFilter that leaves no group source-specific.
inline constexpr Mox::StringView noSsmRange = ".no-ssm-range";

// clang-format off
#define PIMSM_SSM_GROUP_INFO_ATTRIBUTES( A ) \
   A( Fixed,   addressFamily,    AddressFamily,    Vantu::AddressFamily, , "of the groups" ) \
   A( Child,   trie,             Trie,             TrieGen,  ,      "the configured prefixes" ) \
   A( Counter, ssmConfigChanged, SsmConfigChanged, uint32_t, 0,     "the range may be another; wraps" ) \
   A( Value,   initialized,      Initialized,      bool,     false, "the trie exists" )
// clang-format on

class PIMSM_API SsmGroupInfo : public Mox::Entity {
 public:
   MOX_ENTITY( SsmGroupInfo, PIMSM_SSM_GROUP_INFO_ATTRIBUTES )

   // Ends with handleInitialized().
   explicit SsmGroupInfo( Vantu::AddressFamily family );

   // A new, empty trie takes the place of the present one, if any.
   Mox::Ptr<TrieGen> trieIs( Mox::StringView name, Vantu::AddressFamily family );

   void handleInitialized();

   // Is the group source-specific under this configuration? False for a family
   // other than the two. Throws RangeError where level 8 is traced and the VRF's
   // name is longer than L3::VrfName::maxLength.
   bool ssmGroup( const Vantu::IpGenAddr& group, const Config& config ) const;
   // REQUIRES: not null.
   bool ssmGroup( const Vantu::IpGenAddr& group,
                  const Mox::Ptr<const Config>& config ) const {
      MOX_ASSERT( config != nullptr );
      return ssmGroup( group, *config );
   }

   // Releases the trie; the destructor does so, too.
   void doCleanup();

 protected:
   ~SsmGroupInfo() override = default;

 private:
   TrieGen* newTrie() const;
   void handleZeroReferences() override { doCleanup(); }
};

PIMSM_API Mox::Ptr<SsmGroupInfo> ssmGroupInfoFactory( Vantu::AddressFamily family );

}
