#pragma once

#include "chart/candle.h"

#include <QByteArray>
#include <QList>
#include <QStringList>

// Frames shaped like the real Binance combined streams (the full @ticker object, @trade,
// depth20@100ms), with prices that move from one round to the next.
QStringList benchPairs(int count); // BTCUSDT, ETHUSDT, then made-up USDT pairs
QByteArray watchlistJson(const QStringList &symbols);
QStringList tickerFrames(const QStringList &symbols, int round);
QStringList tradeFrames(const QString &symbol, int count, int round);
QStringList depthFrames(const QString &symbol, int count, int round);
// One frame of each at a time, as a socket hands them over.
QString tickerFrame(const QStringList &symbols, int index, int round);
QString tradeFrame(const QString &symbol, int index, int count, int round);
QString depthFrame(const QString &symbol, int index, int round);
QList<Candle> benchCandles(int count);
