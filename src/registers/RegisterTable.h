#pragma once
/**
 * RegisterTable: the virtual register space of a module, shared by the
 * register classes of all module kinds.
 *
 * A module's register class (StreamReg, later SystemReg, InterfaceReg,
 * DeviceReg) lists its registers once, as rows of address, width, getter
 * and setter, ascending by address:
 *
 *   const RegisterRow<StreamReg> kRows[] = {
 *       {0x0100, 512, &StreamReg::GetStreamID, nullptr},
 *       {0x0400, 8, &StreamReg::GetStreamBufferHandlingMode_Reg,
 *        &StreamReg::SetStreamBufferHandlingMode_Reg},
 *       ...
 *   };
 *   static_assert(IsAscending(kRows));
 *   const RegisterTable<StreamReg> kTable(kRows);
 *
 * and its DispatchRead and DispatchWrite are kTable.Read(*this, ...) and
 * kTable.Write(*this, ...). The getters and setters are virtual members of
 * the register class, so the implementation class answers.
 *
 * Decoding: null buffer or size GC_ERR_INVALID_PARAMETER; the address must
 * equal a row's address exactly (an address inside a register is not
 * found: GC_ERR_INVALID_ADDRESS); a row without the wanted accessor is
 * GC_ERR_ACCESS_DENIED, recorded bare. The width column is what the
 * module's XML states; the dispatcher does not check it against *size, the
 * accessors do what they need.
 */
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

#include "GenTL_KESTA.h"
#include "api/Error.h"

namespace GenTL {

template <class Reg> struct RegisterRow {
    using Getter = int (Reg::*)(void* buffer, unsigned long* size);
    using Setter = int (Reg::*)(const void* buffer, unsigned long* size);

    unsigned long address;
    /// Bytes the XML gives the register; 0 for the XML document itself.
    unsigned long length;
    /// Null for a write-only register.
    Getter get;
    /// Null for a read-only register.
    Setter set;
};

/// True when the rows are strictly ascending by address (the search needs it).
template <class Reg, std::size_t N> constexpr bool IsAscending(const RegisterRow<Reg> (&rows)[N]) {
    for (std::size_t i = 1; i < N; ++i) {
        if (!(rows[i - 1].address < rows[i].address)) {
            return false;
        }
    }
    return true;
}

template <class Reg> class RegisterTable {
public:
    using Row = RegisterRow<Reg>;

    template <std::size_t N>
    constexpr explicit RegisterTable(const Row (&rows)[N]) : m_rows(rows), m_count(N) {}

    /// The row at exactly this address, or null.
    const Row* Find(unsigned long address) const {
        const Row* last = end();
        const Row* it =
            std::lower_bound(begin(), last, address,
                             [](const Row& row, unsigned long a) { return row.address < a; });
        return it != last && it->address == address ? it : nullptr;
    }

    int Read(Reg& reg, unsigned long address, void* buffer, unsigned long* size) const {
        const Row* row = nullptr;
        if (int rc = Decode(address, buffer, size, row)) {
            return rc;
        }
        if (row->get == nullptr) {
            return detail::ReportBareError(GC_ERR_ACCESS_DENIED);
        }
        return (reg.*(row->get))(buffer, size);
    }

    int Write(Reg& reg, unsigned long address, const void* buffer, unsigned long* size) const {
        const Row* row = nullptr;
        if (int rc = Decode(address, buffer, size, row)) {
            return rc;
        }
        if (row->set == nullptr) {
            return detail::ReportBareError(GC_ERR_ACCESS_DENIED);
        }
        return (reg.*(row->set))(buffer, size);
    }

    const Row* begin() const { return m_rows; }
    const Row* end() const { return m_rows + m_count; }
    std::size_t size() const { return m_count; }

private:
    int Decode(unsigned long address, const void* buffer, const unsigned long* size,
               const Row*& row) const {
        if (buffer == nullptr) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "pBuffer==nullptr");
        }
        if (size == nullptr) {
            return ReportError(GC_ERR_INVALID_PARAMETER, "piSize==nullptr");
        }
        row = Find(address);
        if (row == nullptr) {
            char text[64];
            std::snprintf(text, sizeof text, "no register at address 0x%lX", address);
            return ReportError(GC_ERR_INVALID_ADDRESS, text);
        }
        return GC_ERR_SUCCESS;
    }

    const Row* m_rows;
    std::size_t m_count;
};

} // namespace GenTL
