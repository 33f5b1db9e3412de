#pragma once

// What nearly every test needs.

#include "Files.h"
#include "Text.h"

#include <gtest/gtest.h>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QTemporaryDir>
