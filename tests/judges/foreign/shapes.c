// SPDX-License-Identifier: MIT
// Types, variables and blocks of all kinds for other compilers to describe. Freestanding, and free of what would need a
// library: no division, no wide multiplication, no floating point arithmetic.
#include "tests/judges/foreign/shapes.h"

#define SQUARE_SIDE 12
#define SCALE(value) ((value) << 2)
#undef SQUARE_SIDE
#define SQUARE_SIDE 13

union word {
    unsigned int whole;
    unsigned char bytes[2];
};

struct node {
    struct node *next;
    const volatile char *name;
    enum colour colour;
    unsigned int low : 3;
    unsigned int : 2;
    signed int high : 6;
    union word word;
    float ratio;
    double exact;
    int (*visit)(struct node *, char);
    short grid[3][4];
    struct {
        unsigned char anonymous;
    } inner;
};

struct node nodes[4];
static const char *const names[] = {"zero", "one", "two"};
static volatile int counter = -5;
typedef unsigned long word_type;
extern int elsewhere;

static inline int twice(int value)
{
    int result = value;
    result += value;
    return result;
}

int walk(struct node *first, int limit)
{
    int sum = 0;
    for (struct node *at = first; at != 0; at = at->next) {
        int seen = at->low;
        {
            long deeper = seen + limit;
            sum += twice((int)deeper);
        }
        if (sum > limit) {
            int excess = sum - limit;
            counter = excess;
            break;
        }
    }
    return sum;
}

word_type choose(word_type key, enum colour colour)
{
    switch (colour) {
    case RED:
        return key + SCALE(3);
    case GREEN: {
        struct node local = nodes[key & 3];
        return (word_type)walk(&local, SQUARE_SIDE);
    }
    default:
        break;
    }
    return (word_type)names[key & 1][0] + (word_type)twice(counter);
}

int start(int a, int b)
{
    register int spin = a & 31;
    while (spin-- > 0) {
        a = measure(a, b) + twice(b);
        if (a == elsewhere) {
            goto out;
        }
    }
out:
    return a + (int)choose((word_type)b, BLUE);
}
