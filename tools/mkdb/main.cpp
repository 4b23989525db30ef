// mv-mkdb SCRIPT OUTPUT: builds a rule database from a Jet SQL script.

#include "JetScript.h"

#include <QCoreApplication>
#include <QTextStream>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    QTextStream err(stderr);
    if (args.size() != 3) {
        err << "usage: mv-mkdb SCRIPT.sql OUTPUT.mdb\n";
        return 2;
    }
    const QString error = mv::tools::BuildDatabase(args.at(1), args.at(2));
    if (!error.isEmpty()) {
        err << "mv-mkdb: " << error << "\n";
        return 1;
    }
    return 0;
}
