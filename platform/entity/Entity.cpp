#include "platform/entity/Entity.h"

#include <algorithm>

namespace Mox {

static_assert( sizeof( Entity ) <= 40, "600,000 records carry it" );
static_assert( sizeof( Entity::NotifieeConst ) <= 48 );

Entity::~Entity() {
   dropObservers();
}

void Entity::zeroReferences() const {
   if ( !tornDown_ ) {
      tornDown_ = true;
      count_ = 1;  // the pin
      const_cast<Entity*>( this )->handleZeroReferences();
      dropObservers();
      if ( --count_ != 0 ) return;
   }
   delete this;
}

void Entity::attach( NotifieeConst* observer ) const {
   observer->previous_ = tail_;
   observer->next_ = nullptr;
   ( tail_ != nullptr ? tail_->next_ : head_ ) = observer;
   tail_ = observer;
}

void Entity::detach( NotifieeConst* observer ) const {
   for ( Visit* visit = visits_; visit != nullptr; visit = visit->outer_ ) {
      visit->forget( observer );
   }
   NotifieeConst* before = observer->previous_;
   NotifieeConst* after = observer->next_;
   ( before != nullptr ? before->next_ : head_ ) = after;
   ( after != nullptr ? after->previous_ : tail_ ) = before;
}

void Entity::Visit::forget( const NotifieeConst* observer ) {
   if ( observer == last_ ) {
      if ( cursor_ == observer ) cursor_ = nullptr;
      last_ = observer->previous_;
   } else if ( cursor_ == observer ) {
      cursor_ = observer->next_;
   }
}

void Entity::dropObservers() const {
   for ( Visit* visit = visits_; visit != nullptr; visit = visit->outer_ ) {
      visit->cursor_ = nullptr;
      visit->entity_ = nullptr;
   }
   visits_ = nullptr;
   while ( head_ != nullptr ) {
      NotifieeConst* observer = head_;
      head_ = observer->next_;
      observer->target_ = nullptr;
   }
   tail_ = nullptr;
}

size_t Entity::observerCount() const {
   size_t count = 0;
   for ( const NotifieeConst* o = head_; o != nullptr; o = o->next_ ) ++count;
   return count;
}

void Entity::NotifieeConst::targetIs( const Entity* entity ) {
   if ( entity == target_ ) return;
   if ( target_ != nullptr ) target_->detach( this );
   target_ = entity;
   if ( target_ != nullptr ) target_->attach( this );
}

String Entity::attributeText( StringView name ) const {
   return typeInfo().attribute( name ).get( *this );
}

void Entity::attributeTextIs( StringView name, StringView text ) {
   const AttributeInfo& attribute = typeInfo().attribute( name );
   if ( attribute.set == nullptr ) {
      throw NameError( String( typeInfo().name ) + ": attribute " + String( name ) +
                       " cannot be written" );
   }
   attribute.set( *this, text );
}

}
