// The one thing that differs between the frei0r plugin files: which effect.
extern const int reelfxFrei0rEffect;
const int reelfxFrei0rEffect = REELFX_FREI0R_EFFECT;
