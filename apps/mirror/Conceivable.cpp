#include "apps/mirror/Conceivable.h"

#include <algorithm>

namespace Show {

namespace Sm = Routing::Pim::SparseMode;
using Sm::AssertInfo;
using Vantu::IpGenAddr;

namespace {

// Could this router have the address, given the assert's result?
bool agrees( const AssertInfo& info, const IpGenAddr& own ) {
   const bool winner = own == info.assertWinnerMetric.address;
   if ( info.assertState == Sm::iAmAssertWinner ) return winner;
   return info.assertState == Sm::assertNoInfo || !winner;
}

std::vector<IpGenAddr> ownAddresses( const Sm::Intf& intf,
                                     Vantu::AddressFamily family ) {
   const bool ipv4 = family == Vantu::AddressFamily::ipv4;
   std::vector<const AssertInfo*> asserts = { &intf.assertInfo() };
   if ( const Sm::Intf* shared = intf.wcIntf() )
      asserts.push_back( &shared->assertInfo() );
   std::vector<IpGenAddr> addresses = {
      IpGenAddr(), IpGenAddr( ipv4 ? "0.0.0.1" : "::1" ),
      IpGenAddr( ipv4 ? "255.255.255.254"
                      : "ffff:ffff:ffff:ffff:ffff:ffff:ffff:fffe" ) };
   for ( const AssertInfo* info : asserts )
      addresses.push_back( info->assertWinnerMetric.address );
   std::vector<IpGenAddr> agreeing = addresses;
   std::erase_if( agreeing, [&]( const IpGenAddr& own ) {
      return !std::all_of(
         asserts.begin(), asserts.end(),
         [&]( const AssertInfo* info ) { return agrees( *info, own ); } );
   } );
   return agreeing.empty() ? addresses : agreeing;
}

}

Conceivable::Conceivable( const Mirror& mirror )
   : model_( mirror.model ), family_( mirror.family ) {
   if ( model_->pimStatus() != nullptr ) return;
   made_ = Mox::newEntity<Routing::Pim::Status>();
   model_->pimStatusIs( made_ );
}

Conceivable::~Conceivable() {
   if ( made_ != nullptr ) model_->pimStatusIs( nullptr );
}

void Conceivable::each( const Sm::Intf& intf,
                        const std::function<void()>& call ) const {
   if ( published() ) return call();
   Mox::Ptr<Routing::Pim::Intf> own = made_->intfIs( intf.intfId() );
   for ( const IpGenAddr& address : ownAddresses( intf, family_ ) ) {
      own->addrIs( { address, 0 } );
      for ( bool dr : { false, true } ) {
         own->iAmDrIs( dr );
         call();
      }
   }
   made_->intfDel( intf.intfId() );
}

std::optional<bool> Conceivable::known( const Sm::Intf& intf,
                                        const std::function<bool()>& macro ) const {
   bool ever = false, always = true;
   each( intf, [&] {
      const bool holds = macro();
      ever = ever || holds;
      always = always && holds;
   } );
   if ( ever != always ) return std::nullopt;
   return ever;
}

}
