#include "vintakd/ipc/FunctionMeasurer.h"

#include <cstdio>
#include <iostream>

#include "hsutils/Utils.h"

unsigned FunctionMeasurer::s_level = 0;

FunctionMeasurer::FunctionMeasurer(const char* name) : m_name(name), m_start(nanoTime()) {
    std::cout << indent() << (m_name ? m_name : "") << "()" << std::endl;
    ++s_level;
}

FunctionMeasurer::~FunctionMeasurer() {
    --s_level;
    measure(nullptr);
}

void FunctionMeasurer::measure(const char* label) {
    char elapsed[64];
    snprintf(elapsed, sizeof elapsed, "%7.3f", nanoToMilisec(nanoTime() - m_start));
    std::cout << indent() << (m_name ? m_name : "");
    if (label) std::cout << " - " << label;
    std::cout << ": " << elapsed << "ms" << std::endl;
}

std::string FunctionMeasurer::indent() {
    return std::string(size_t{4} * s_level, ' ');
}
