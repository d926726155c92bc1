#include "hsutils/HSProperty.h"

#include "hsutils/HSAssertionException.h"

namespace {

const char* checked(const char* str) {
    HS_ASSERT_NOT_NULL(str);
    return str;
}

}  // namespace

HSProperty::HSProperty(const char* name, const char* value)
    : m_name(checked(name)), m_value(checked(value)) {}

void HSProperty::setValue(const char* value) {
    HS_ASSERT_NOT_NULL(value);
    m_value = value;
}
