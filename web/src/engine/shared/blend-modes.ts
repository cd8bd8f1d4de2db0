// The blend modes the user picks from, in the picker's order; the label is the mode's raw value.
export const blendModeLabels = [
  'Normal', 'Color', 'Color Burn', 'Color Dodge', 'Darken', 'Difference', 'Exclusion', 'Hard Light', 'Hue',
  'Lighten', 'Luminosity', 'Multiply', 'Overlay', 'Plus Darker', 'Plus Lighter', 'Saturation', 'Screen',
  'Soft Light',
] as const;

export type BlendModeLabel = (typeof blendModeLabels)[number];
export const blendModeCount = blendModeLabels.length;
