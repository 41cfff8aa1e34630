// Feeds arbitrary settings text to the chart's readers: a JSON array is read as a drawing list,
// an object as the indicator settings with every array value in it as a drawing list. Whatever
// comes in, the settings stay within their bounds and one write and read settles every value.
#include "chart/drawings.h"
#include "chart/indicators.h"

#include <QByteArray>
#include <QJsonDocument>

#include <cstddef>
#include <cstdint>

namespace {

void check(bool condition)
{
    if (!condition)
        __builtin_trap();
}

void checkDrawings(const QJsonArray &array)
{
    const QList<ChartDrawing> drawings = drawingsFromJson(array);
    check(drawings.size() <= array.size());
    const QJsonArray written = drawingsToJson(drawings);
    check(written.size() == drawings.size());
    for (const ChartDrawing &drawing : drawings)
        check(drawing.color.isValid());
    check(drawingsToJson(drawingsFromJson(written)) == written);
}

void checkSettings(const QJsonObject &object)
{
    IndicatorSettings settings;
    settings.readJson(object);
    for (int period : {settings.smaPeriod, settings.emaPeriod, settings.macdFast, settings.macdSlow,
                       settings.macdSignal})
        check(period >= kMinIndicatorPeriod && period <= kMaxIndicatorPeriod);
    check(settings.macdFast < settings.macdSlow || settings.macdSlow == kMaxIndicatorPeriod);
    const QJsonObject written = settings.toJson();
    check(written.size() == 13);
    IndicatorSettings reread;
    reread.readJson(written);
    check(reread.toJson() == written);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray text(reinterpret_cast<const char *>(data), qsizetype(size));
    const QJsonDocument document = QJsonDocument::fromJson(text);
    if (document.isArray()) {
        checkDrawings(document.array());
    } else if (document.isObject()) {
        const QJsonObject object = document.object();
        checkSettings(object);
        for (const QJsonValue &value : object) {
            if (value.isArray())
                checkDrawings(value.toArray());
        }
    }
    return 0;
}
