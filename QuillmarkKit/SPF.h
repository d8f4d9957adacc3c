#pragma once

#include "QuillmarkKit/Support/Fields.h"

namespace quillmark {

/// The outcome of an SPF check (RFC 7208, section 2.6).
enum class SPFResult { pass, fail, softfail, neutral, none, permerror, temperror };
constexpr auto namesOf(SPFResult) {
    return EnumTable<SPFResult, 7>{EnumStyle::word,
                                   {"pass", "fail", "softfail", "neutral", "none", "permerror", "temperror"}};
}

}  // namespace quillmark
