// The Debian package as a user gets it: built from this build tree with CPack, unpacked with
// dpkg-deb into a fresh root and checked file by file, its Depends line, its desktop entry
// (desktop-file-validate), its man pages (man -l) and its programs; and make install's rules
// with another prefix into a staging DESTDIR.
#include "testnetwork.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

struct Ran {
    int exitCode = -1;
    QString out;
    QString err;
};

// Runs `program` with `arguments` in `folder` (empty: here) and waits up to five minutes.
Ran run(const QString& program, const QStringList& arguments, const QString& folder = QString(),
        const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment()) {
    QProcess process;
    process.setProcessEnvironment(environment);
    if (!folder.isEmpty())
        process.setWorkingDirectory(folder);
    process.start(program, arguments);
    Ran ran;
    if (!process.waitForFinished(300000)) {
        process.kill();
        process.waitForFinished();
        ran.err = program + " did not finish";
        return ran;
    }
    ran.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    ran.out = QString::fromLocal8Bit(process.readAllStandardOutput());
    ran.err = QString::fromLocal8Bit(process.readAllStandardError());
    return ran;
}

const QStringList kIconSizes = {"16", "22", "24", "32", "48", "64", "128", "256"};
const QStringList kPrograms = {"viewlane", "viewlane-cli", "korvatin-camsim"};

// Every file the package and make install put under their prefix.
QStringList expectedFiles() {
    QStringList files = {"bin/korvatin-camsim",
                         "bin/viewlane",
                         "bin/viewlane-cli",
                         "share/applications/korvatin-viewlane.desktop",
                         "share/doc/korvatin-viewlane/README.md",
                         "share/doc/korvatin-viewlane/user-guide.md",
                         "share/korvatin-viewlane/Release_Notes.txt",
                         "share/man/man1/korvatin-camsim.1.gz",
                         "share/man/man1/viewlane-cli.1.gz",
                         "share/man/man1/viewlane.1.gz"};
    for (const QString& size : kIconSizes)
        files << QString("share/icons/hicolor/%1x%1/apps/korvatin-viewlane.png").arg(size);
    // The user guide's pictures, as many as the source tree has.
    const QDir images(TestNetwork::sourceDir() + "/docs/images");
    for (const QString& image : images.entryList({"*.png"}, QDir::Files))
        files << "share/doc/korvatin-viewlane/images/" + image;
    files.sort();
    return files;
}

// The files under `root`, relative to it, sorted.
QStringList filesUnder(const QString& root) {
    QStringList files;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(root).relativeFilePath(it.next());
    files.sort();
    return files;
}

} // namespace

class TestPackage : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();

    void thePackageHoldsEveryFileAndNothingElse();
    void itsDependsLineNamesTheLibrariesTheProgramsUse();
    void theDesktopEntryIsValidAndStartsTheViewerWithItsReleaseNotes();
    void everyManPageReadsWithManAndDescribesItsProgram();
    void theUnpackedProgramsRunAndTellTheirVersion();
    void everyIconIsAPngOfItsSize();
    void makeInstallHonoursPrefixAndDestdir();

private:
    QTemporaryDir m_dir;
    QString m_buildDir;
    QString m_package;
    QString m_root; // the package unpacked: its /usr
};

void TestPackage::initTestCase() {
    QVERIFY(m_dir.isValid());
    m_buildDir = QDir(TestNetwork::binDir() + "/..").absolutePath();
    const Ran cpack = run("cpack", {"-G", "DEB", "-B", m_dir.filePath("cpack")}, m_buildDir);
    QVERIFY2(cpack.exitCode == 0, qPrintable(cpack.out + cpack.err));
    const Ran arch = run("dpkg", {"--print-architecture"});
    m_package = m_dir.filePath("cpack/korvatin-viewlane_2.11.04_" + arch.out.trimmed() + ".deb");
    QVERIFY2(QFile::exists(m_package), qPrintable(cpack.out));
    const Ran unpack = run("dpkg-deb", {"-x", m_package, m_dir.filePath("root")});
    QVERIFY2(unpack.exitCode == 0, qPrintable(unpack.err));
    m_root = m_dir.filePath("root/usr");
}

void TestPackage::thePackageHoldsEveryFileAndNothingElse() {
    QCOMPARE(filesUnder(m_dir.filePath("root")),
             QStringList(expectedFiles()).replaceInStrings(QRegularExpression("^"), "usr/"));
    for (const QString& file : expectedFiles())
        QVERIFY2(QFileInfo(m_root + '/' + file).size() > 0, qPrintable(file));
    for (const QString& program : kPrograms)
        QVERIFY(QFileInfo(m_root + "/bin/" + program).isExecutable());
    const Ran fields = run("dpkg-deb", {"-f", m_package, "Package", "Version", "Section"});
    QCOMPARE(fields.out,
             QString("Package: korvatin-viewlane\nVersion: 2.11.04\nSection: science\n"));
}

void TestPackage::itsDependsLineNamesTheLibrariesTheProgramsUse() {
    const Ran depends = run("dpkg-deb", {"-f", m_package, "Depends"});
    QCOMPARE(depends.exitCode, 0);
    QStringList names;
    for (const QString& entry : depends.out.trimmed().split(", ", Qt::SkipEmptyParts))
        names << entry.section(' ', 0, 0);
    // The libraries each program links, as dpkg-shlibdeps finds their packages.
    for (const char* name :
         {"libaravis-0.8-0", "libqt6core6", "libqt6gui6", "libqt6widgets6", "libqt6openglwidgets6",
          "libtiff6", "libglib2.0-0", "libstdc++6", "libc6"})
        QVERIFY2(names.contains(name), qPrintable(name + (" not in: " + depends.out)));
    QVERIFY2(names.filter(QRegularExpression("^libavformat[0-9]+$")).size() == 1,
             qPrintable(depends.out));
    // Every one is a package of this Debian release, installed here at a version that fits.
    for (const QString& entry : depends.out.trimmed().split(", ", Qt::SkipEmptyParts)) {
        const Ran status = run("dpkg-query", {"-W", "-f=${Status}", entry.section(' ', 0, 0)});
        QVERIFY2(status.out == "install ok installed", qPrintable(entry));
    }
}

void TestPackage::theDesktopEntryIsValidAndStartsTheViewerWithItsReleaseNotes() {
    const QString entry = m_root + "/share/applications/korvatin-viewlane.desktop";
    const Ran validate = run("desktop-file-validate", {entry});
    QVERIFY2(validate.exitCode == 0, qPrintable(validate.out + validate.err));
    QCOMPARE(validate.out + validate.err, QString());
    QFile file(entry);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split('\n');
    QVERIFY(lines.contains("Exec=env KORVATIN_DIR=/usr/share/korvatin-viewlane viewlane"));
    QVERIFY(lines.contains("Icon=korvatin-viewlane"));
    QVERIFY(lines.contains("Name=Korvatin Viewlane"));
    // The folder it names holds the notes the About box reads.
    QVERIFY(QFileInfo(m_root + "/share/korvatin-viewlane/Release_Notes.txt").size() > 0);
}

void TestPackage::everyManPageReadsWithManAndDescribesItsProgram() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("MANWIDTH", "100");
    environment.insert("LC_ALL", "C"); // hyphens as ASCII
    for (const QString& program : kPrograms) {
        const QString page = m_root + "/share/man/man1/" + program + ".1.gz";
        const Ran man = run("man", {"-l", page}, QString(), environment);
        QVERIFY2(man.exitCode == 0, qPrintable(program + ": " + man.err));
        // man justifies the line, so the spaces around the dash may be doubled.
        const QRegularExpression name("NAME\n +" + QRegularExpression::escape(program) +
                                      " +- +\\S");
        QVERIFY2(man.out.contains(name), qPrintable(man.out));
        QVERIFY2(man.out.contains("SYNOPSIS"), qPrintable(man.out));
        // The page is the program's own --help: its first option and its version are there.
        const Ran help = run(m_root + "/bin/" + program, {"--help"});
        QVERIFY(help.out.contains("--help"));
        QVERIFY2(man.out.contains("2.11.04"), qPrintable(man.out));
    }
    const Ran cli =
        run("man", {"-l", m_root + "/share/man/man1/viewlane-cli.1.gz"}, QString(), environment);
    QVERIFY(cli.out.contains("doctor [DEVICE]"));
    QVERIFY(cli.out.contains("--json"));
}

void TestPackage::theUnpackedProgramsRunAndTellTheirVersion() {
    for (const QString& program : kPrograms) {
        const Ran version = run(m_root + "/bin/" + program, {"--version"});
        QVERIFY2(version.exitCode == 0, qPrintable(program + ": " + version.err));
        QVERIFY2(version.out.startsWith(program + " 2.11.04 (Korvatin Viewlane)"),
                 qPrintable(version.out));
    }
}

void TestPackage::everyIconIsAPngOfItsSize() {
    for (const QString& size : kIconSizes) {
        const QString file =
            m_root + QString("/share/icons/hicolor/%1x%1/apps/korvatin-viewlane.png").arg(size);
        QImage icon;
        QVERIFY2(icon.load(file, "PNG"), qPrintable(file));
        QCOMPARE(icon.size(), QSize(size.toInt(), size.toInt()));
    }
}

void TestPackage::makeInstallHonoursPrefixAndDestdir() {
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    const QString stage = m_dir.filePath("stage");
    environment.insert("DESTDIR", stage);
    const Ran install = run("cmake", {"--install", m_buildDir, "--prefix", "/opt/viewlane"},
                            QString(), environment);
    QVERIFY2(install.exitCode == 0, qPrintable(install.out + install.err));
    QCOMPARE(
        filesUnder(stage),
        QStringList(expectedFiles()).replaceInStrings(QRegularExpression("^"), "opt/viewlane/"));
    QFile entry(stage + "/opt/viewlane/share/applications/korvatin-viewlane.desktop");
    QVERIFY(entry.open(QIODevice::ReadOnly));
    QVERIFY(entry.readAll().contains(
        "\nExec=env KORVATIN_DIR=/opt/viewlane/share/korvatin-viewlane viewlane\n"));
}

QTEST_GUILESS_MAIN(TestPackage)
#include "tst_package.moc"
