export const mean = (a) => a.reduce((s, x) => s + x, 0) / a.length;
