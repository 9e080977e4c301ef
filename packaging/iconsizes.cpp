// korvatin-iconsizes: writes the application icon at the sizes of the hicolor icon theme, so the
// desktop's menu has a sharp icon at every size it draws, from the one icon the program carries.
#include <QCoreApplication>
#include <QDir>
#include <QImage>

#include <cstdio>

// Usage: korvatin-iconsizes ICON OUTDIR NAME SIZE...; writes OUTDIR/SIZExSIZE/apps/NAME.png.
int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    const QStringList arguments = application.arguments();
    if (arguments.size() < 5) {
        std::fputs("usage: korvatin-iconsizes ICON OUTDIR NAME SIZE...\n", stderr);
        return 2;
    }
    const QImage icon(arguments[1]);
    if (icon.isNull()) {
        std::fprintf(stderr, "korvatin-iconsizes: cannot read %s\n", qPrintable(arguments[1]));
        return 1;
    }
    for (qsizetype i = 4; i < arguments.size(); ++i) {
        const int size = arguments[i].toInt();
        const QString folder = QStringLiteral("%1/%2x%2/apps").arg(arguments[2]).arg(size);
        if (size <= 0 || !QDir().mkpath(folder)) {
            std::fprintf(stderr, "korvatin-iconsizes: cannot make %s\n", qPrintable(folder));
            return 1;
        }
        const QImage scaled =
            icon.convertToFormat(QImage::Format_ARGB32)
                .scaled(size, size, Qt::KeepAspectRatio, Qt::SmoothTransformation);
        const QString file = folder + '/' + arguments[3] + ".png";
        if (!scaled.save(file, "PNG")) {
            std::fprintf(stderr, "korvatin-iconsizes: cannot write %s\n", qPrintable(file));
            return 1;
        }
    }
    return 0;
}
