// The output bytes are those that the operations give in the order in which they are written.
#pragma once

#if defined(__FAST_MATH__) || defined(__ASSOCIATIVE_MATH__) || defined(__RECIPROCAL_MATH__)            \
    || defined(__NO_SIGNED_ZEROS__) || __FINITE_MATH_ONLY__ != 0
#error                                                                                                 \
    "compile vela_enc_mp1a without -ffast-math, -Ofast and what they consist of: they change its output"
#endif
#if __FLT_EVAL_METHOD__ != 0
#error "vela_enc_mp1a needs arithmetic in the type of the operands, as SSE2 has it"
#endif
