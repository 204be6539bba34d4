#include "search/SearchResultExport.h"

#include <QtTest>

namespace {

SearchItemPtr item(const QByteArray& name, const QByteArray& path, qint64 size, qint64 msecs, const QString& type)
{
    auto i = std::make_shared<SearchItem>(name, SearchFolder::make(path));
    i->fileSize = size;
    i->modifiedMSecs = msecs;
    i->typeIndex = SearchTypes::intern(type);
    return i;
}

// A small RFC 4180 reader: records of fields, quotes doubled inside quoted fields, CRLF between records.
QList<QByteArrayList> parseCsv(const QByteArray& text)
{
    QList<QByteArrayList> records;
    QByteArrayList record;
    QByteArray field;
    bool quoted = false;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        if (quoted) {
            if (c == '"' && i + 1 < text.size() && text.at(i + 1) == '"') {
                field.append('"');
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                field.append(c);
            }
        } else if (c == '"') {
            if (!field.isEmpty())
                return {}; // a quote inside an unquoted field: not RFC 4180
            quoted = true;
        } else if (c == ',') {
            record.append(field);
            field.clear();
        } else if (c == '\r' && i + 1 < text.size() && text.at(i + 1) == '\n') {
            record.append(field);
            field.clear();
            records.append(record);
            record.clear();
            ++i;
        } else {
            if (c == '\n' || c == '\r')
                return {}; // a bare line break outside quotes
            field.append(c);
        }
    }
    if (quoted || !field.isEmpty() || !record.isEmpty())
        return {}; // the last record must end with CRLF
    return records;
}

} // namespace

class TestSearchResultExport : public QObject
{
    Q_OBJECT

private slots:
    void init() { qputenv("TZ", "Europe/Berlin"); }

    void csvQuotesAwkwardNamesAndReadsBack()
    {
        const QList<SearchItemPtr> items{
            item("plain.txt", "/home/u", 12, 0, QStringLiteral("text/plain")),
            item("a,b \"quoted\"\nsecond line\r\n", "/home/u/x,y", 0, 1'700'000'000'000,
                 QStringLiteral("application/octet-stream")),
            item("folder", "/home/u", -1, SearchItem::kNoDate, QStringLiteral("inode/directory")),
            item("bad\xff.bin", "/home/\xfe", 3, 0, QString()),
        };
        items.at(2)->fileHidden = true;
        items.at(3)->fileInPackage = true;

        const QByteArray out = SearchResultExport::csv(items);
        const QList<QByteArrayList> records = parseCsv(out);
        QCOMPARE(records.size(), 5);
        QCOMPARE(records.at(0), (QByteArrayList{"name", "folder", "size", "date", "kind", "class"}));
        QCOMPARE(records.at(1),
                 (QByteArrayList{"plain.txt", "/home/u", "12", "1970-01-01T01:00:00.000+01:00", "text/plain", "r"}));
        QCOMPARE(records.at(2), (QByteArrayList{"a,b \"quoted\"\nsecond line\r\n", "/home/u/x,y", "0",
                                                "2023-11-14T23:13:20.000+01:00", "application/octet-stream", "r"}));
        // A folder has no size, a missing date gives an empty field.
        QCOMPARE(records.at(3), (QByteArrayList{"folder", "/home/u", "", "", "inode/directory", "h"}));
        // Bytes that are not UTF-8 become U+FFFD, so the file stays valid UTF-8.
        QCOMPARE(records.at(4), (QByteArrayList{"bad\xef\xbf\xbd.bin", "/home/\xef\xbf\xbd", "3",
                                                "1970-01-01T01:00:00.000+01:00", "", "p"}));
        QCOMPARE(QString::fromUtf8(out).toUtf8(), out);
    }

    void csvOfNothingIsTheHeader()
    {
        QCOMPARE(SearchResultExport::csv({}), QByteArray("name,folder,size,date,kind,class\r\n"));
    }

    void pathsKeepRawBytes()
    {
        const QList<SearchItemPtr> items{
            item("new\nline", "/tmp/a", 0, 0, QString()),
            item("\xff\xfe", "//usr", 0, 0, QString()),
            item("-dash", "/", 0, 0, QString()),
        };
        QCOMPARE(SearchResultExport::paths(items, false), QByteArray("/tmp/a/new\nline\n/usr/\xff\xfe\n/-dash\n"));
        QCOMPARE(SearchResultExport::paths(items, true), QByteArray("/tmp/a/new\nline\0/usr/\xff\xfe\0/-dash\0", 31));
        QCOMPARE(SearchResultExport::paths({}, true), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestSearchResultExport)
#include "TestSearchResultExport.moc"
