// The 30 ways to merge, numbered as the merge node's program is told them. A is the foreground, B the
// background, both premultiplied; a and b are their alphas. Every formula holds for alpha as for
// colour. Where a formula would divide by 0 it gives its limit, or 0 where there is none.

float color_burn(float A, float B) {
  return B >= 1.0 ? 1.0 : A <= 0.0 ? 0.0 : 1.0 - min(1.0, (1.0 - B) / A);
}

float color_dodge(float A, float B) {
  return B <= 0.0 ? 0.0 : A >= 1.0 ? 1.0 : min(1.0, B / (1.0 - A));
}

float divided(float A, float B) {
  return B == 0.0 ? 0.0 : A / B;
}

float geometric(float A, float B) {
  return A + B == 0.0 ? 0.0 : 2.0 * A * B / (A + B);
}

// Colour above 1 has no complement: there the brighter one shows.
float screened(float A, float B) {
  return A <= 1.0 && B <= 1.0 ? A + B - A * B : max(A, B);
}

float hard_light(float A, float B) {
  return A < 0.5 ? 2.0 * A * B : 1.0 - 2.0 * (1.0 - A) * (1.0 - B);
}

float soft_light(float A, float B) {
  return A * B < 1.0 ? B * (2.0 * A + B * (1.0 - A * B)) : 2.0 * A * B;
}

float merged(int operation, float A, float B, float a, float b) {
  switch (operation) {
    case 0: return A * b + B * (1.0 - a);                                        // atop: Ab + B(1 - a)
    case 1: return (A + B) / 2.0;                                                // average: (A + B) / 2
    case 2: return color_burn(A, B);                                             // color-burn: 1 - (1 - B) / A
    case 3: return color_dodge(A, B);                                            // color-dodge: B / (1 - A)
    case 4: return a > b ? A : A + (b == 0.0 ? 0.0 : B * (b - a) / b);           // conjoint-over: A + B(1 - a/b), A where a > b
    case 5: return A;                                                            // copy: A
    case 6: return abs(A - B);                                                   // difference: |A - B|
    case 7: return a + b < 1.0 ? A + B : A + (b == 0.0 ? 0.0 : B * (1.0 - a) / b);  // disjoint-over: A + B(1 - a)/b, A + B where a + b < 1
    case 8: return divided(A, B);                                                // divide: A / B
    case 9: return A + B - 2.0 * A * B;                                          // exclusion: A + B - 2AB
    case 10: return B - A;                                                       // from: B - A
    case 11: return geometric(A, B);                                             // geometric: 2AB / (A + B)
    case 12: return hard_light(A, B);                                            // hard-light: 2AB where A < 1/2, else 1 - 2(1 - A)(1 - B)
    case 13: return sqrt(A * A + B * B);                                         // hypot: sqrt(A^2 + B^2)
    case 14: return A * b;                                                       // in: Ab
    case 15: return B * a;                                                       // mask: Ba
    case 16: return A * a + B * (1.0 - a);                                       // matte: Aa + B(1 - a)
    case 17: return max(A, B);                                                   // max: max(A, B)
    case 18: return min(A, B);                                                   // min: min(A, B)
    case 19: return A - B;                                                       // minus: A - B
    case 20: return A * B;                                                       // multiply: AB
    case 21: return A * (1.0 - b);                                               // out: A(1 - b)
    case 23: return hard_light(B, A);                                            // overlay: 2AB where B < 1/2, else 1 - 2(1 - A)(1 - B)
    case 24: return A + B;                                                       // plus: A + B
    case 25: return screened(A, B);                                              // screen: A + B - AB, the larger where one is above 1
    case 26: return soft_light(A, B);                                            // soft-light: B(2A + B(1 - AB)) where AB < 1, else 2AB
    case 27: return B * (1.0 - a);                                               // stencil: B(1 - a)
    case 28: return A * (1.0 - b) + B;                                           // under: A(1 - b) + B
    case 29: return A * (1.0 - b) + B * (1.0 - a);                               // xor: A(1 - b) + B(1 - a)
  }
  return A + B * (1.0 - a);                                                      // over (22): A + B(1 - a)
}
