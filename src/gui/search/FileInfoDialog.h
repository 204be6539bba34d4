#pragma once

#include <QByteArray>
#include <QDialog>

// The program's own information window for one file, shown when no file manager answers a request for
// the file's properties: name, kind, size, folder and dates.
class FileInfoDialog : public QDialog
{
    Q_OBJECT
public:
    explicit FileInfoDialog(const QByteArray& path, QWidget* parent = nullptr);
};
