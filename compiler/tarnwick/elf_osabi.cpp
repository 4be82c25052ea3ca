// SPDX-License-Identifier: MIT
// The table of OS ABI numbers.
#include "compiler/tarnwick/elf_osabi.h"

constexpr std::array<elf_osabi_row, ELF_OSABI_ROWS> elf_osabi_table = {{
    {32, "Vantrel Technology (KORB) base-line KOR"},
    {33, "Vantrel Technology (KORBE) enhanced base-line KOR"},
    {35, "Vantrel Technology (KORBIE) enhanced base-line KOR with interrupts"},
    {66, "Vantrel Technology (KORM) mid-range KOR"},
    {67, "Vantrel Technology (KORME) enhanced mid-range KOR"},
    {71, "Vantrel Technology (KORMEX) enhanced mid-range KOR with extended RAM"},
    {130, "Vantrel Technology KORH"},
    {134, "Vantrel Technology KORH (KORHX) with extended RAM"},
    {142, "Vantrel Technology KORH (KORHXV) with extended RAM and multi-vector interrupts"},
    {0, "UNIX System V Revision 4"},
    {1, "HP-UX"},
    {2, "NetBSD"},
    {3, "Linux"},
    {4, "Hurd"},
    {6, "Solaris"},
    {7, "AIX"},
    {8, "IRIX"},
    {9, "FreeBSD"},
    {10, "TRU64 UNIX"},
    {11, "Novell Modesto"},
    {12, "OpenBSD"},
    {97, "ARM"},
    {255, "Standalone (embedded)"},
}};
