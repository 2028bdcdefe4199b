// Counted references.
//
// Mox::Ptr<T> shares ownership of a T that derives from RefCounted<T>, or of an
// entity, which counts for itself. One thread per process: counts are plain
// unless the library is built with PIMSM_ATOMIC_PTR.
#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>
#include <cstdint>
#include <utility>

#ifdef PIMSM_ATOMIC_PTR
#include <atomic>
#endif

namespace Mox {

template <class T>
using Ptr = boost::intrusive_ptr<T>;

#ifdef PIMSM_ATOMIC_PTR
using RefCount = std::atomic<uint32_t>;
template <class T>
using RefCounted = boost::intrusive_ref_counter<T, boost::thread_safe_counter>;
#else
using RefCount = uint32_t;
template <class T>
using RefCounted = boost::intrusive_ref_counter<T, boost::thread_unsafe_counter>;
#endif

template <class T, class... Args>
Ptr<T> makePtr( Args&&... args ) {
   return Ptr<T>( new T( std::forward<Args>( args )... ) );
}

}
