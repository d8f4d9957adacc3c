#include "WindowBaseline/QtWords.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <memory>

namespace window_baseline {

bool translateQt(const QString& language) {
    auto words = std::make_unique<QTranslator>();
    if (!words->load(QLocale(language), QStringLiteral("qtbase"), QStringLiteral("_"),
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        return false;
    words->setParent(QCoreApplication::instance());
    return QCoreApplication::installTranslator(words.release());
}

}  // namespace window_baseline
