#pragma once
#include <string>
#include <vector>

namespace Tessarin {

/// The texts of the environment that decide on the two below, for telling whether they changed.
std::string localeWishes();
std::string languageWishes();

/// The locale of dates in ICU's spelling, "de_DE": LC_ALL, else LC_TIME, else LANG, of which ICU's own default leaves out the
/// second. "en_US_POSIX" for C, and for languages that ICU has no names for.
std::string userLocale();
/// The calendar that people of that locale prefer: "gregorian", "persian".
std::string calendarOfLocale(std::string const& locale);
/// The languages of texts, the best first: LANGUAGE, else that of LC_ALL, LC_MESSAGES or LANG: "pt-BR", "pt_BR",
/// "pt-Latn", "pt". Empty for C.
std::vector<std::string> userLanguages();

} // namespace Tessarin
