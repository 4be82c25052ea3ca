// SPDX-License-Identifier: MIT
// What each option does, for the table of options alone.
#pragma once

#include "compiler/tarnwick/option_table.h"

void on_a(const option_use &use);
void on_b(const option_use &use);
void on_c(const option_use &use);
void on_d(const option_use &use);
void on_e(const option_use &use);
void on_f(const option_use &use);
[[noreturn]] void on_h(const option_use &use);
void on_i(const option_use &use);
void on_k(const option_use &use);
[[noreturn]] void on_l(const option_use &use);
void on_m(const option_use &use);
void on_o(const option_use &use);
void on_p(const option_use &use);
void on_s(const option_use &use);
void on_v(const option_use &use);
void on_w(const option_use &use);

void on_edf(const option_use &use);
void on_emax(const option_use &use);
void on_msgdisable(const option_use &use);
void on_standard_dwarf(const option_use &use);
void on_disable_dwarf(const option_use &use);
void on_dwarf_use_ranges(const option_use &use);
void on_dwarf_use_loclists(const option_use &use);
void on_dwarf_addr_size(const option_use &use);
[[noreturn]] void on_ver(const option_use &use);
void on_psect_flags(const option_use &use);
void on_code_delta(const option_use &use);
void on_zrdebug(const option_use &use);
void on_code_spaces(const option_use &use);
void on_data_spaces(const option_use &use);
void on_eeprom_spaces(const option_use &use);
void on_werror(const option_use &use);
