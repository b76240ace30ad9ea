#pragma once
/**
 * Localization of log texts. There is no translation store in this system, so
 * loc::al is a formatting step: it fills "{0}", "{1}", ... with its arguments.
 *
 *   loc::al("DeviceGev::Open exception creating stream = {0}", what)
 *
 * Every occurrence of "{i}" is replaced by argument i, for i from 0 on, in
 * the order of the arguments; after each replacement the search for that
 * index starts again at the beginning of the string, so a placeholder formed
 * by a replacement and the text around it is filled as well. An argument that
 * holds its own placeholder is substituted in one left-to-right pass instead,
 * since the restarting search would never end. A null text or argument throws
 * std::logic_error.
 */
#include <initializer_list>
#include <string>

namespace GenTL {
namespace loc {

/// text unchanged.
std::string al(const char* text);
/// text with "{i}" replaced by args[i].
std::string al(const char* text, std::initializer_list<const char*> args);

/// The same with the arguments as a list of texts.
template <class... Args> std::string al(const char* text, const Args&... args) {
    return al(text, std::initializer_list<const char*>{static_cast<const char*>(args)...});
}

} // namespace loc
} // namespace GenTL
