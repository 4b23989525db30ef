#pragma once
// The utilities object created by ProgID "SQSafeLib.MAPIUtils".

#include <QByteArray>
#include <QString>

namespace mv::outlook {

class SafeMapiUtils {
public:
    QString HrGetHexFromBinary(const QByteArray& binary) const;
    // Releases what the library cached for the session. Nothing is cached
    // here, so it only counts its calls; calling it again is harmless.
    void Cleanup() { ++m_cleanups; }
    int Cleanups() const { return m_cleanups; }

private:
    int m_cleanups = 0;
};

}  // namespace mv::outlook
