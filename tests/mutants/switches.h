// The changes of instrumented sources, see switches.py: each has a number, and is made where that number is chosen. Included
// before everything else in the build of mutants.py.
#pragma once
#ifdef __cplusplus
// Not even a call stays where a change is made for good, so that the code can be compared.
#define SWITCHES_INLINE __attribute__((always_inline)) inline

namespace switches {

extern int chosen;              // the change that is made, -1 for none
extern unsigned char* reached;  // a byte for each change: whether its place was executed

#ifdef SWITCHES_FIXED  // the change is made for good, to compare optimised code
SWITCHES_INLINE constexpr bool on(int number) { return number == SWITCHES_FIXED; }
SWITCHES_INLINE constexpr bool onAtStart(int number) { return on(number); }
#else
inline bool onAtStart(int number) {
    reached[number] = 1;
    return chosen == number;
}
// What the compiler computes, as the size of an array, stays as it is.
constexpr bool on(int number) { return __builtin_is_constant_evaluated() ? false : onAtStart(number); }
#endif

#define SWITCHES_RELATION(name, operation, other)                                            \
    template <class A, class B>                                                              \
    SWITCHES_INLINE constexpr bool name(int number, const A& a, const B& b) {                \
        return on(number) ? static_cast<bool>(a other b) : static_cast<bool>(a operation b); \
    }
SWITCHES_RELATION(less, <, <=)
SWITCHES_RELATION(lessOrEqual, <=, <)
SWITCHES_RELATION(greater, >, >=)
SWITCHES_RELATION(greaterOrEqual, >=, >)
SWITCHES_RELATION(equal, ==, !=)
SWITCHES_RELATION(unequal, !=, ==)
#undef SWITCHES_RELATION

#define SWITCHES_ARITHMETIC(name, operation, other)                                                    \
    template <class A, class B>                                                                        \
    SWITCHES_INLINE constexpr auto name(int number, const A& a, const B& b)->decltype(a operation b) { \
        return on(number) ? static_cast<decltype(a operation b)>(a other b) : a operation b;           \
    }
SWITCHES_ARITHMETIC(plus, +, -)
SWITCHES_ARITHMETIC(minus, -, +)
SWITCHES_ARITHMETIC(times, *, /)
SWITCHES_ARITHMETIC(divided, /, *)
SWITCHES_ARITHMETIC(rest, %, *)
#undef SWITCHES_ARITHMETIC

template <class A, class B>
SWITCHES_INLINE constexpr A& add(int number, A& a, const B& b) {
    return on(number) ? a -= b : a += b;
}
template <class A, class B>
SWITCHES_INLINE constexpr A& subtract(int number, A& a, const B& b) {
    return on(number) ? a += b : a -= b;
}
template <class A>
SWITCHES_INLINE constexpr A& increment(int number, A& a) {
    return on(number) ? --a : ++a;
}
template <class A>
SWITCHES_INLINE constexpr A& decrement(int number, A& a) {
    return on(number) ? ++a : --a;
}
template <class A>
SWITCHES_INLINE constexpr A postIncrement(int number, A& a) {
    return on(number) ? a-- : a++;
}
template <class A>
SWITCHES_INLINE constexpr A postDecrement(int number, A& a) {
    return on(number) ? a++ : a--;
}
template <class T>
SWITCHES_INLINE constexpr T constant(int number, T value) {
    return on(number) ? static_cast<T>(value + 1) : value;
}
template <>
SWITCHES_INLINE constexpr bool constant(int number, bool value) {
    return on(number) != value;
}
// For constants with a name, which become variables.
template <class T>
SWITCHES_INLINE T constantAtStart(int number, T value) {
    return onAtStart(number) ? static_cast<T>(value + 1) : value;
}
template <>
SWITCHES_INLINE bool constantAtStart(int number, bool value) {
    return onAtStart(number) != value;
}

#undef SWITCHES_INLINE
}  // namespace switches
#endif
