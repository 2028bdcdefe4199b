// Entities: counted objects with observable attributes.
//
// A type lists its attributes once (Attribute.h) and gets readers, mutators,
// notification hooks and reflection from that list. Event-loop thread only.
//
// Notifications. A mutator stores, runs the attribute's own reaction, then calls
// every observer in order of registration, synchronously and depth first. An
// observer attached during a visit is not called in it; one detached is not called
// any more. A new entity's notifications are off: values are stored and reactions
// run, observers hear nothing, until notificationsEnabledIs( true ).
//
// Lifetime. Ptr<T> counts references; observing does not. When the last reference
// goes, the entity runs handleZeroReferences() once, with itself pinned, and drops
// its observers, each of which forgets its target. A reference taken meanwhile
// keeps the empty shell alive; nothing is destroyed twice. Destructors are
// protected, so that an entity is made by new and held by Ptr. Its mutators work
// before the first reference; later a caller holds a reference while calling them.
#pragma once

#include <type_traits>

#include "platform/base/Assert.h"
#include "platform/base/Ptr.h"
#include "platform/entity/Reflection.h"

namespace Mox {

class PIMSM_API Entity {
 public:
   class NotifieeConst;

   Entity( const Entity& ) = delete;
   Entity& operator=( const Entity& ) = delete;

   bool notificationsEnabled() const { return notificationsEnabled_; }
   void notificationsEnabledIs( bool enabled ) { notificationsEnabled_ = enabled; }

   // Attributes by name; see Reflection.h.
   virtual const TypeInfo& typeInfo() const = 0;

   // The attribute's text form. Throws NameError when there is no such attribute.
   String attributeText( StringView name ) const;

   // Sets the attribute through its mutator. Throws NameError when there is none of
   // that name or it cannot be written, ParseError or RangeError on bad text; then
   // nothing changed.
   void attributeTextIs( StringView name, StringView text );

   // How many observers are attached. Linear; for tests and tools.
   size_t observerCount() const;

 protected:
   Entity() = default;
   virtual ~Entity();

   // The last reference has gone: remove the members, notifying as usual.
   virtual void handleZeroReferences() {}

   // Does anybody hold a reference? False during construction.
   bool isHeld() const { return count_ != 0; }

   // Calls `call` with each observer, as an Observer&.
   template <class Observer, class Call>
   void notifyObservers( Call call ) const {
      if ( head_ == nullptr || !notificationsEnabled_ ) return;
      // A lone observer needs no Visit: its call is the last, whatever it does.
      if ( head_ == tail_ ) return call( static_cast<Observer&>( *head_ ) );
      Visit visit( *this );
      while ( NotifieeConst* observer = visit.next() ) {
         call( static_cast<Observer&>( *observer ) );
      }
   }

 private:
   template <class T>
   friend class Pin;

   // One walk over the observers; walks of one entity nest.
   class Visit {
    public:
// The destructor takes the address back; g++ 12 does not see that.
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
      explicit Visit( const Entity& entity )
         : entity_( &entity ),
           cursor_( entity.head_ ),
           last_( entity.tail_ ),
           outer_( entity.visits_ ) {
         entity.visits_ = this;
      }
#if defined( __GNUC__ ) && !defined( __clang__ )
#pragma GCC diagnostic pop
#endif
      ~Visit() {
         if ( entity_ != nullptr ) entity_->visits_ = outer_;
      }
      Visit( const Visit& ) = delete;
      Visit& operator=( const Visit& ) = delete;

      NotifieeConst* next();

    private:
      friend class Entity;
      void forget( const NotifieeConst* observer );

      const Entity* entity_;
      NotifieeConst* cursor_;
      const NotifieeConst* last_;
      Visit* outer_;
   };

   friend void intrusive_ptr_add_ref( const Entity* entity ) {
      ++entity->count_;
   }
   friend void intrusive_ptr_release( const Entity* entity ) {
      if ( --entity->count_ == 0 ) entity->zeroReferences();
   }

   void zeroReferences() const;
   void attach( NotifieeConst* observer ) const;
   void detach( NotifieeConst* observer ) const;
   void dropObservers() const;

   mutable RefCount count_ = 0;
   bool notificationsEnabled_ = false;
   mutable bool tornDown_ = false;
   mutable NotifieeConst* head_ = nullptr;
   mutable NotifieeConst* tail_ = nullptr;
   mutable Visit* visits_ = nullptr;
};

// Base of every observer. An entity type T has its own T::NotifieeConst, which adds
// notifierIs( const T* ), notifier() and one onX() a notifying attribute; all do
// nothing unless overridden.
//
// An observer watches at most one entity and detaches when destroyed. It holds no
// reference: when the entity goes, its target becomes null without a call.
class PIMSM_API Entity::NotifieeConst {
 public:
   NotifieeConst( const NotifieeConst& ) = delete;
   NotifieeConst& operator=( const NotifieeConst& ) = delete;

 protected:
   NotifieeConst() = default;
   virtual ~NotifieeConst() { targetIs( nullptr ); }

   const Entity* target() const { return target_; }
   // Detaches from the former target; null only detaches. Replays nothing.
   void targetIs( const Entity* entity );

 private:
   friend class Entity;

   const Entity* target_ = nullptr;
   NotifieeConst* previous_ = nullptr;
   NotifieeConst* next_ = nullptr;
};

inline Entity::NotifieeConst* Entity::Visit::next() {
   NotifieeConst* current = cursor_;
   if ( current != nullptr ) cursor_ = current == last_ ? nullptr : current->next_;
   return current;
}

// Keeps an entity for the duration of its own call, in which an observer may
// release it. Takes no reference to an entity that nobody holds yet: dropping it
// would destroy the entity.
template <class T>
class Pin {
 public:
   explicit Pin( T* entity ) : held_( entity->isHeld() ? entity : nullptr ) {}
   Pin( const Pin& ) = delete;
   Pin& operator=( const Pin& ) = delete;

 private:
   Ptr<T> held_;
};

// Returns a new entity with its notifications on, as factories do.
template <class T, class... Args>
Ptr<T> newEntity( Args&&... args ) {
   Ptr<T> entity( new T( std::forward<Args>( args )... ) );
   entity->notificationsEnabledIs( true );
   return entity;
}

}
