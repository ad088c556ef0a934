// What the headers that veltrano-plan generates are made of: events as types. Hosts include a
// generated header and write, such as for a plan with the namespace `player`:
//
//   player::track(player::SongPlayed{"Hurt", 218.5, player::SongPlayed::Source::search});
//
// Warning: an event refers to the texts, lists and maps that it is made of, as `HostMapView` does.
// Make it in the call that takes it; never store one.
#pragma once

#include <initializer_list>
#include <optional>
#include <type_traits>
#include <utility>

#include "veltrano/veltrano.h"

namespace veltrano::plan {

using detail::Argument;
using detail::FlatWriter;
using Entries = std::initializer_list<detail::MapElement>;

/// Specialised by a generated header for each event and each nested object: its name, and a
/// function that lists its properties, those that are absent, too, as in a braced list.
template <class Object>
struct Definition;

/// Specialised by a generated header for each enumeration: its values, as they are sent.
template <class Enumeration>
struct Values;

// The types of properties. Nothing else converts to them; a null pointer is absent.
struct Text {
  template <class T>
  static constexpr bool isTaken =
      (detail::isText<T> || detail::isConvertedToText<T>)&&!std::is_same_v<T, std::nullptr_t>;
};
struct Integer {
  template <class T>
  static constexpr bool isTaken = detail::isInteger<T> || std::is_same_v<T, Int64>;
};
struct Number {
  template <class T>
  static constexpr bool isTaken = Integer::isTaken<T> || detail::isOneOf<T, float, double>;
};
struct Boolean {
  template <class T>
  static constexpr bool isTaken = std::is_same_v<T, bool>;
};
struct Time {
  template <class T>
  static constexpr bool isTaken = detail::isTime<T> || std::is_same_v<T, Date>;
};
struct Link {
  template <class T>
  static constexpr bool isTaken = std::is_same_v<T, URL>;
};
struct Map {
  template <class T>
  static constexpr bool isTaken = std::is_base_of_v<HostMap, T> ||
                                  (detail::isMap<T> && detail::isArgument<T>);
};
struct Anything {
  template <class T>
  static constexpr bool isTaken =
      detail::isArgument<T> && !detail::isOneOf<T, std::nullopt_t, std::nullptr_t>;
};

/// A value of one of these types.
template <class Type>
class Given {
 public:
  template <class T, std::enable_if_t<Type::template isTaken<T>, int> = 0>
  Given(const T& value) : argument_(value) {}

  friend const Argument& argumentOf(const Given& given) { return given.argument_; }

 private:
  Argument argument_;
};

template <class Type, class = void>
struct Holder {
  using Held = Type;  // an enumeration, a nested object or a list
};
template <class Type>
struct Holder<Type, std::void_t<decltype(Type::template isTaken<int>)>> {
  using Held = Given<Type>;
};

template <class Enumeration, std::enable_if_t<std::is_enum_v<Enumeration>, int> = 0>
Argument argumentOf(const Enumeration& value) {
  const auto& texts = Values<Enumeration>::texts;
  const auto index = static_cast<std::size_t>(value);
  return index < std::size(texts) ? Argument(texts[index]) : Argument();
}

template <class Object, class = decltype(sizeof(Definition<Object>))>
Argument argumentOf(const Object& object) {
  return Argument(
      [](FlatWriter& writer, const void* it) {
        Definition<Object>::list(*static_cast<const Object*>(it),
                                 [&](Entries properties) { writer.value(properties); });
      },
      &object);
}

/// A braced list, or a list of the host's own such as `std::vector`.
template <class Type>
class List {
 public:
  using Element = typename Holder<Type>::Held;

  List(std::initializer_list<Element> elements)
      : elements_(elements.begin()), size_(elements.size()), append_(appendBraced) {}
  template <class T,
            std::enable_if_t<detail::isSequence<T> && !detail::isHashed<T> &&
                                 std::is_convertible_v<const typename T::value_type&, Element>,
                             int> = 0>
  List(const T& list) : elements_(&list), append_(appendOwn<T>) {}

  friend Argument argumentOf(const List& list) {
    return Argument(
        [](FlatWriter& writer, const void* object) {
          const auto array = writer.open(detail::Kind::Array);
          const auto& it = *static_cast<const List*>(object);
          it.append_(writer, it);
          writer.close(array);
        },
        &list);
  }

 private:
  static void append(FlatWriter& writer, const Element& element) {
    writer.value(argumentOf(element));
  }
  static void appendBraced(FlatWriter& writer, const List& list) {
    const auto* element = static_cast<const Element*>(list.elements_);
    for (const auto* const end = element + list.size_; element != end; ++element)
      append(writer, *element);
  }
  template <class T>
  static void appendOwn(FlatWriter& writer, const List& list) {
    for (const auto& element : *static_cast<const T*>(list.elements_))
      append(writer, static_cast<const typename T::value_type&>(element));
  }

  const void* elements_;
  std::size_t size_ = 0;
  void (*append_)(FlatWriter&, const List&);
};

/// A property that cannot be left out. `Name` is for the compiler's messages.
template <class Type, class Name>
class Required {
  using Held = typename Holder<Type>::Held;

 public:
  Required() = delete;
  template <class T, std::enable_if_t<std::is_convertible_v<const T&, Held>, int> = 0>
  Required(const T& value) : value_(value) {}
  template <class T = Type>
  Required(std::initializer_list<typename T::Element> list) : value_(list) {}

  Argument argument() const { return argumentOf(value_); }

 private:
  Held value_;
};

/// A property that may be left out.
template <class Type, class Name>
class Optional {
  using Held = typename Holder<Type>::Held;

 public:
  Optional(std::nullopt_t = std::nullopt) {}
  template <class T, std::enable_if_t<std::is_convertible_v<const T&, Held>, int> = 0>
  Optional(const T& value) : value_(value) {}
  template <class T, std::enable_if_t<std::is_convertible_v<const T&, Held>, int> = 0>
  Optional(const std::optional<T>& value) {
    if (value) value_.emplace(*value);
  }
  template <class T = Type>
  Optional(std::initializer_list<typename T::Element> list) : value_(list) {}

  Argument argument() const { return value_ ? argumentOf(*value_) : Argument(); }

 private:
  std::optional<Held> value_;
};

/// Records an event of the plan, as `Veltrano::track` does.
template <class Event, class = decltype(Definition<Event>::name)>
void track(const Event& event, Veltrano::FlushCompletion forceFlushCompletion = nullptr) {
  Definition<Event>::list(event, [&](Entries properties) {
    Veltrano::shared().track(Definition<Event>::name, HostMapView(properties),
                             std::move(forceFlushCompletion));
  });
}

}  // namespace veltrano::plan
