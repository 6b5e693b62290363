// Browse names as a server sends them, joined into paths and merged with alternatives; the walk's
// path tree must give the joined text of the same names.
#include "client_core/browse_path.h"
#include "fuzz/fuzz_input.h"

#include <QStringList>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QList<QByteArray> fields = fuzz_input::fields(data, size);
    const int split = fields.size() / 2;
    QStringList first;
    QStringList second;
    for (int i = 0; i < fields.size(); ++i)
        (i < split ? first : second).append(QString::fromUtf8(fields.at(i)));

    QString path = joinBrowsePath(first);
    const QString alternative = joinBrowsePath(second);
    QString description = QString::fromUtf8(fields.value(0));
    const QString before = path;
    applyAlternateBrowsePath(&path, &description, alternative);
    if (path != before && path != alternative)
        std::abort();
    applyAlternateBrowsePath(&path, nullptr, before);
    applyAlternateBrowsePath(nullptr, &description, alternative);

    BrowsePathTree tree;
    BrowsePathTree::Ref node = BrowsePathTree::empty;
    for (const QString& segment : first)
        node = tree.child(node, segment);
    if (tree.text(node) != joinBrowsePath(first))
        std::abort();
    return 0;
}
