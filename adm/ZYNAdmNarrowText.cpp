// ZYNAdmNarrowText.cpp - the narrow form of a text for one system call.
#include "ZYNAdmNarrowText.h"

#include "ZYNAdmCodePage.h"

ZYNAdmNarrowText::ZYNAdmNarrowText(DString const& text) : _text(ZYNAdmCodePage::ConvertUcsToStr(text)) {}

ZYNAdmNarrowText::~ZYNAdmNarrowText() { ZYNAdmCodePage::FreeAndNull(_text); }
