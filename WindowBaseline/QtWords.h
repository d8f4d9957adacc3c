#pragma once

class QString;

namespace window_baseline {

/// From now on Qt's own words, such as those on the buttons of its dialogs, are in a language ("de",
/// "zh-Hans"), for as long as the application lives. For Swedish and Greek, which Qt may not have, the usual
/// ones are ours. They stay English where Qt's translations are not installed: false then.
bool translateQt(const QString& language);

}  // namespace window_baseline
