/* Waiting. */

typedef unsigned int ticks_t;

ticks_t timer_load(void);
void timer_wait(ticks_t pause);
