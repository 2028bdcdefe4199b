#include "frr/FrrFilterStatus.h"

#include "platform/entity/Factory.h"
#include "platform/trace/Trace.h"

namespace Routing::Pim::SparseMode {

MOX_TRACE_FACILITY( statusTrace, "Pimsm::FrrFilterSm" )

MOX_ENTITY_TYPE( FrrFilterStatus, PIMSM_FRR_FILTER_STATUS_ATTRIBUTES )

MOX_FACTORY( FrrFilterStatus, []( Mox::StringView family ) {
   return frrFilterStatusFactory(
      Mox::stringToValue<Vantu::AddressFamily>( family ) );
} )

static constexpr Mox::StringView kTrieName = "FrrFilter";

Mox::Ptr<FrrFilterStatus> frrFilterStatusFactory( Vantu::AddressFamily af ) {
   return Mox::newEntity<FrrFilterStatus>( af );
}

FrrFilterStatus::FrrFilterStatus( Vantu::AddressFamily af ) : addressFamily_( af ) {
   handleInitialized();
}

TrieGen* FrrFilterStatus::newTrie() const {
   return new TrieGen( kTrieName, addressFamily() );
}

Mox::Ptr<TrieGen> FrrFilterStatus::trieIs( Mox::StringView name,
                                           Vantu::AddressFamily family ) {
   auto made = Mox::newEntity<TrieGen>( name, family );
   trie_ = made;
   MOX_NOTIFY( Trie );
   return made;
}

void FrrFilterStatus::handleInitialized() {
   MOX_TRACE( statusTrace, 8,
              "void Routing::Pim::SparseMode::FrrFilterStatus::handleInitialized()"
                 << '(' << addressFamily() << ')' );
   trieIs( kTrieName, addressFamily() );
   initializedIs( true );
}

bool FrrFilterStatus::frrEnabled( const Vantu::IpGenPrefix& srcPrefix,
                                  const Vantu::IpGenPrefix& grpPrefix ) const {
   bool enabled = trie() != nullptr &&
                  trie()->longestMatch( grpPrefix ) != Vantu::IpGenPrefix();
   MOX_TRACE( statusTrace, 8,
              "frrEnabled(" << srcPrefix << ", " << grpPrefix << "), enabled "
                            << Mox::valueToStrep( enabled ) );
   return enabled;
}

}
