// The parts of fmt that are no templates, compiled once for the command: in each file that includes it they would take
// the compiler longer than the rest. Its shared library would be one more to install, and other targets have none.
#include <fmt/format-inl.h>

FMT_BEGIN_NAMESPACE
namespace detail {
template FMT_API auto thousands_sep_impl(locale_ref) -> thousands_sep_result<char>;
template FMT_API auto decimal_point_impl(locale_ref) -> char;
}  // namespace detail
FMT_END_NAMESPACE
