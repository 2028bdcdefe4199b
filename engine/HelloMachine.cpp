#include "engine/HelloMachine.h"

namespace Router {

using Vantu::IpGenAddr;

HelloMachine::HelloMachine( Mox::Clock& clock, Sender& sender,
                            Vantu::IntfId intfId )
   : sender_( sender ), intfId_( intfId ), next_( clock, [this] { sendNow(); } ) {}

void HelloMachine::adopt( const Kept& kept ) {
   adopted_ = kept;
}

std::optional<HelloMachine::Kept> HelloMachine::kept() const {
   if ( !begun_ || !speaks() ) return std::nullopt;
   return Kept{ generationId_, next_.until() };
}

void HelloMachine::configIs( const InterfaceConfig& config,
                             const std::vector<IpGenAddr>& own ) {
   const bool readdressed = begun_ && own.front() != own_.front();
   const bool silenced = begun_ && speaks() && config.passive;
   if ( readdressed || silenced ) sayGoodbye();
   const bool said = begun_ && !readdressed && speaks();
   const PimHello before = said ? content() : PimHello();
   config_ = config;
   own_ = own;
   if ( !speaks() ) {
      begun_ = false;
      return next_.cancel();
   }
   if ( begun_ ) {
      if ( !said || content() != before ) sendNow();
      return;
   }
   begun_ = true;
   generationId_ = adopted_ ? adopted_->generationId : sender_.randomWord();
   if ( adopted_ ) return sendNow();
   startWithin( triggeredDelay );
}

void HelloMachine::handleNew( const IpGenAddr& neighbor ) {
   if ( !begun_ ) return;
   deaf_.insert( neighbor );
   startWithin( triggeredDelay );
}

// RFC 7761, 4.3.1: a neighbour takes no other message of a router that it has not
// heard a hello of.
void HelloMachine::handleSending( const IpGenAddr& to ) {
   if ( !begun_ ) return;
   const bool deaf = to.isUnspecified() ? !deaf_.empty() : deaf_.count( to ) != 0;
   if ( !introduced_ || deaf ) sendNow();
}

void HelloMachine::sayGoodbye() {
   if ( introduced_ ) send( 0 );
   introduced_ = false;
}

PimHello HelloMachine::content() const {
   PimHello hello;
   hello.holdtime = config_.helloHoldtime;
   hello.lanPruneDelay = { !config_.joinSuppression, config_.propagationDelay,
                           config_.overrideInterval };
   hello.drPriority = config_.drPriority;
   hello.generationId = generationId_;
   hello.addresses.assign( own_.begin() + 1, own_.end() );
   return hello;
}

bool HelloMachine::send( uint16_t holdtime ) {
   PimHello hello = content();
   hello.holdtime = holdtime;
   return sender_.send( { intfId_, own(), allPimRouters( own().family() ),
                          pimMessage( std::move( hello ) ) } );
}

void HelloMachine::sendNow() {
   introduced_ = send( config_.helloHoldtime );
   if ( introduced_ ) deaf_.clear();
   next_.start( introduced_ ? config_.helloInterval : Sender::retry );
}

void HelloMachine::startWithin( double most ) {
   const double delay = sender_.randomTime( most );
   if ( next_.running() ) return next_.lower( delay );
   next_.start( delay );
}

}
