#include "WindowBaseline/QtWords.h"

#include <QCoreApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>
#include <algorithm>
#include <memory>

namespace window_baseline {

namespace {

/// Words of Qt's dialogs and fields, for languages that Qt has no translation for.
struct Row {
    const char *english, *swedish, *greek;
};
constexpr Row rows[] = {
    {"OK", "OK", "OK"},
    {"Cancel", "Avbryt", "Άκυρο"},
    {"&Yes", "&Ja", "&Ναι"},
    {"&No", "&Nej", "Ό&χι"},
    {"&Open", "&Öppna", "Ά&νοιγμα"},
    {"&Save", "&Spara", "Απο&θήκευση"},
    {"&Choose", "&Välj", "&Επιλογή"},
    {"Open", "Öppna", "Άνοιγμα"},
    {"Save As", "Spara som", "Αποθήκευση ως"},
    {"Find Directory", "Välj mapp", "Επιλογή φακέλου"},
    {"Look in:", "Leta i:", "Αναζήτηση σε:"},
    {"Directory:", "Mapp:", "Φάκελος:"},
    {"File &name:", "Fil&namn:", "Όν&ομα αρχείου:"},
    {"Files of type:", "Filer av typen:", "Αρχεία τύπου:"},
    {"All Files (*)", "Alla filer (*)", "Όλα τα αρχεία (*)"},
    {"Back", "Bakåt", "Πίσω"},
    {"Go back", "Gå tillbaka", "Μετάβαση πίσω"},
    {"Forward", "Framåt", "Μπροστά"},
    {"Go forward", "Gå framåt", "Μετάβαση μπροστά"},
    {"Parent Directory", "Överordnad mapp", "Γονικός φάκελος"},
    {"Go to the parent directory", "Gå till den överordnade mappen", "Μετάβαση στον γονικό φάκελο"},
    {"Create New Folder", "Skapa ny mapp", "Δημιουργία νέου φακέλου"},
    {"Create a New Folder", "Skapa en ny mapp", "Δημιουργία ενός νέου φακέλου"},
    {"New Folder", "Ny mapp", "Νέος φάκελος"},
    {"&New Folder", "&Ny mapp", "&Νέος φάκελος"},
    {"List View", "Listvy", "Προβολή λίστας"},
    {"Change to list view mode", "Byt till listvy", "Αλλαγή σε προβολή λίστας"},
    {"Detail View", "Detaljvy", "Προβολή λεπτομερειών"},
    {"Change to detail view mode", "Byt till detaljvy", "Αλλαγή σε προβολή λεπτομερειών"},
    {"Sidebar", "Sidofält", "Πλευρική στήλη"},
    {"List of places and bookmarks", "Lista med platser och bokmärken", "Λίστα θέσεων και σελιδοδεικτών"},
    {"Files", "Filer", "Αρχεία"},
    {"&Rename", "&Byt namn", "&Μετονομασία"},
    {"&Delete", "&Ta bort", "&Διαγραφή"},
    {"Show &hidden files", "Visa &dolda filer", "Εμφάνιση &κρυφών αρχείων"},
    {"Remove", "Ta bort", "Αφαίρεση"},
    {"Computer", "Dator", "Υπολογιστής"},
    {"Recent Places", "Senaste platser", "Πρόσφατες θέσεις"},
    {"Name", "Namn", "Όνομα"},
    {"Size", "Storlek", "Μέγεθος"},
    {"Type", "Typ", "Τύπος"},
    {"Date Modified", "Ändrad", "Τροποποιήθηκε"},
    {"Drive", "Enhet", "Μονάδα δίσκου"},
    {"File", "Fil", "Αρχείο"},
    {"Folder", "Mapp", "Φάκελος"},
    {"%1 already exists.\nDo you want to replace it?", "%1 finns redan.\nVill du ersätta den?",
     "Το %1 υπάρχει ήδη.\nΘέλετε να αντικατασταθεί;"},
    {"%1\nFile not found.\nPlease verify the correct file name was given.",
     "%1\nFilen finns inte.\nKontrollera att filnamnet är rätt.",
     "%1\nΤο αρχείο δεν βρέθηκε.\nΕλέγξτε αν το όνομα του αρχείου είναι σωστό."},
    {"%1\nDirectory not found.\nPlease verify the correct directory name was given.",
     "%1\nMappen finns inte.\nKontrollera att mappens namn är rätt.",
     "%1\nΟ φάκελος δεν βρέθηκε.\nΕλέγξτε αν το όνομα του φακέλου είναι σωστό."},
    {"Are you sure you want to delete '%1'?", "Vill du verkligen ta bort ”%1”?",
     "Θέλετε σίγουρα να διαγραφεί το «%1»;"},
    {"'%1' is write protected.\nDo you want to delete it anyway?",
     "”%1” är skrivskyddad.\nVill du ta bort den ändå?",
     "Το «%1» προστατεύεται από εγγραφή.\nΘέλετε να διαγραφεί παρ’ όλα αυτά;"},
    {"Could not delete directory.", "Mappen kunde inte tas bort.", "Δεν ήταν δυνατή η διαγραφή του φακέλου."},
    {"&Undo", "&Ångra", "&Αναίρεση"},
    {"&Redo", "&Gör om", "Α&κύρωση αναίρεσης"},
    {"Cu&t", "Klipp &ut", "Α&ποκοπή"},
    {"&Copy", "&Kopiera", "Αντι&γραφή"},
    {"&Paste", "Kl&istra in", "&Επικόλληση"},
    {"Delete", "Ta bort", "Διαγραφή"},
    {"Select All", "Markera allt", "Επιλογή όλων"},
};

/// Whatever part of Qt asks.
class OwnWords : public QTranslator {
public:
    explicit OwnWords(const char* Row::* language) : m_language(language) {}
    bool isEmpty() const override { return false; }
    QString translate(const char* /*context*/, const char* text, const char* /*comment*/,
                      int /*count*/) const override {
        const auto row =
            std::ranges::find_if(rows, [&](const Row& each) { return qstrcmp(each.english, text) == 0; });
        return row == std::end(rows) ? QString() : QString::fromUtf8(row->*m_language);
    }

private:
    const char* Row::* const m_language;
};

std::unique_ptr<QTranslator> ownWords(const QString& language) {
    if (language == u"sv") return std::make_unique<OwnWords>(&Row::swedish);
    if (language == u"el") return std::make_unique<OwnWords>(&Row::greek);
    return nullptr;
}

}  // namespace

bool translateQt(const QString& language) {
    auto words = std::make_unique<QTranslator>();
    if (!words->load(QLocale(language), QStringLiteral("qtbase"), QStringLiteral("_"),
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
        words = ownWords(language);
    }
    if (!words) return false;
    words->setParent(QCoreApplication::instance());
    return QCoreApplication::installTranslator(words.release());
}

}  // namespace window_baseline
