#pragma once

#include <QLoggingCategory>

// The tray's lines read "OstaVell shelf: ...": the word the product has always logged under,
// lower case, apart from the panel's "OstaVell Shelf".
Q_DECLARE_LOGGING_CATEGORY(lcShelfStore)
