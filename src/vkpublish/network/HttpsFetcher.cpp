#include "network/HttpsFetcher.h"

#include "network/Receiver.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

class ToMemory : public Receiver
{
public:
    ToMemory(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
        : mPath(pPath), mMaxLength(pMaxLength), mTo(pTo)
    {
    }

    qint64 received() const override { return 0; }
    Failure restart() override
    {
        mTo->clear();
        return {};
    }
    Failure write(QByteArrayView pData) override
    {
        if (pData.size() > mMaxLength - mTo->size()) {
            return Failure::untrusted(
                u"%1 can't be fetched: it has more than %2 bytes"_s.arg(mPath).arg(mMaxLength));
        }
        mTo->append(pData.data(), pData.size());
        return {};
    }

private:
    QString mPath;
    qint64 mMaxLength;
    QByteArray* mTo;
};

} // namespace

Failure HttpsFetcher::fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo)
{
    pTo->clear();
    ToMemory tMemory(pPath, pMaxLength, pTo);
    return mClient.get(pPath, HttpsClient::Size::Small, tMemory);
}

} // namespace tarn::vkpublish
