#include "WindowBaseline/QtWords.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QTranslator>
#include <memory>

namespace window_baseline {

bool translateQt(const QString& language) {
    auto words = std::make_unique<QTranslator>();
    if (!words->load(QStringLiteral("qtbase_") + language,
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        return false;
    words->setParent(QCoreApplication::instance());
    return QCoreApplication::installTranslator(words.release());
}

}  // namespace window_baseline
