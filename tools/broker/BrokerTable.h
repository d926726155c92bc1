#pragma once

#include <amqp.h>

#include <string>
#include <vector>

#include "tools/broker/BrokerConnection.h"

/// Headers as the library takes them. Borrows the texts: they must outlive it.
class BrokerTable {
public:
    explicit BrokerTable(const BrokerHeaders& headers);

    amqp_table_t table();

private:
    std::vector<amqp_table_entry_t> m_entries;
};

/// Texts and whole numbers of a table that a broker sent.
BrokerHeaders headersOf(const amqp_table_t& table);

/// A text as the library takes it, which is borrowed.
amqp_bytes_t borrowed(const std::string& text);
std::string copyOf(const amqp_bytes_t& bytes);
