#include "tools/feeding/FigureText.h"

#include <cstdio>

void FigureText::head(const char* name, const char* type, const char* help) {
    m_text += "# HELP " + m_prefix + name + " " + help + "\n# TYPE " + m_prefix + name + " " + type + "\n";
}

void FigureText::value(const std::string& series, double number) {
    char digits[64];
    (void)snprintf(digits, sizeof digits, " %.17g\n", number);
    m_text += m_prefix + series + digits;
}

void FigureText::single(const char* name, const char* type, const char* help, double number) {
    head(name, type, help);
    value(name, number);
}
