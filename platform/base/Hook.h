// A function that the user supplies. As std::function, but a function of another
// signature gives one compile error in one sentence. Empty by default.
#pragma once

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Mox {

template <class Signature>
class Hook;

template <class Result, class... Args>
class Hook<Result( Args... )> : public std::function<Result( Args... )> {
   using Function = std::function<Result( Args... )>;

 public:
   Hook() = default;
   template <class F>
   requires( !std::derived_from<std::decay_t<F>, Hook> ) Hook( F&& given )
      : Function( checked( std::forward<F>( given ) ) ) {}

 private:
   template <class F>
   static Function checked( F&& given ) {
      constexpr bool kFits = std::is_constructible_v<Function, F>;
      static_assert( kFits,
                     "this hook is called with other arguments, or is to return "
                     "another result: see its declaration" );
      if constexpr ( kFits ) return Function( std::forward<F>( given ) );
      return {};
   }
};

}
