<?xml version="1.0" encoding="UTF-8"?>
<ColorCorrection id="moonlight">
  <SOPNode>
    <Slope>0.35 0.55 1.1</Slope>
    <Offset>0 0.002 0.02</Offset>
    <Power>1.1 1.05 0.95</Power>
  </SOPNode>
  <SatNode>
    <Saturation>0.6</Saturation>
  </SatNode>
</ColorCorrection>
