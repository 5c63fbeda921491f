#pragma once

class QObject;

// Something that announces log messages through Qt signals; the object returned
// carries the signals (newLogMessage(QString), logLevelChanged(quint32)).
class ILogProducer
{
public:
    virtual ~ILogProducer() = default;
    virtual QObject *getILogProducer() = 0;
};
