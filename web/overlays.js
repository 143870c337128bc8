// Features, lines, regions, matches and outlines on top of a picture.

const colours = {corners: "#ffd23f", lines: "#35e0ff", ellipses: "#ff6bd6", boxes: "#ff6bd6", inliers: "#57ff7c", outliers: "#ff8a5c", outline: "#ffffff"};

/** Draws with pixel centres at whole numbers: the place x of the frame lies half a pixel right of its edge. */
export function drawOverlays(context, answer, view, isOn) {
  const {overlays, numbers} = answer;
  const list = (name) => overlays[name] ? numbers.subarray(overlays[name][0], overlays[name][0] + overlays[name][1]) : [];
  const px = (x) => view.left + (x + 0.5) * view.scale, py = (y) => view.top + (y + 0.5) * view.scale;
  const stroke = (path, colour, width = 1.5) => {
    context.lineJoin = "round";
    context.strokeStyle = "rgba(0,0,0,.55)";
    context.lineWidth = (width + 1.5) * devicePixelRatio;
    context.stroke(path);
    context.strokeStyle = colour;
    context.lineWidth = width * devicePixelRatio;
    context.stroke(path);
  };
  if (isOn("lines")) {
    const lines = list("lines"), path = new Path2D();
    let from = 0;
    for (const end of overlays.lineEnds ?? []) {
      const to = Math.abs(end);
      for (let i = from; i < to; ++i) path[i === from ? "moveTo" : "lineTo"](px(lines[2 * i]), py(lines[2 * i + 1]));
      if (end < 0) path.closePath();
      from = to;
    }
    stroke(path, colours.lines, 1.2);
  }
  if (isOn("regions")) {
    const ellipses = list("ellipses"), boxes = list("boxes"), path = new Path2D();
    for (let i = 0; i < ellipses.length; i += 5) {
      const [x, y, a, b, angle] = ellipses.subarray(i, i + 5);
      if (!(a > 0 && b > 0)) continue;
      const turn = angle * Math.PI / 180;
      path.moveTo(px(x) + a * view.scale * Math.cos(turn), py(y) + a * view.scale * Math.sin(turn));
      path.ellipse(px(x), py(y), a * view.scale, b * view.scale, turn, 0, 2 * Math.PI);
    }
    for (let i = 0; i < boxes.length; i += 4)
      path.rect(px(boxes[i] - 0.5), py(boxes[i + 1] - 0.5), (boxes[i + 2] - boxes[i] + 1) * view.scale, (boxes[i + 3] - boxes[i + 1] + 1) * view.scale);
    stroke(path, colours.ellipses);
  }
  if (isOn("matches")) {
    const matches = list("matches"), good = new Path2D(), bad = new Path2D();
    for (let i = 0; i < matches.length; i += 5) {
      const path = matches[i + 4] ? good : bad;
      path.moveTo(px(matches[i]), py(matches[i + 1]));
      path.lineTo(px(matches[i + 2]), py(matches[i + 3]));
    }
    stroke(bad, colours.outliers, 1);
    stroke(good, colours.inliers);
  }
  if (isOn("outline")) {
    const corners = list("outline"), path = new Path2D();
    for (let i = 0; i < corners.length; i += 2) path[i ? "lineTo" : "moveTo"](px(corners[i]), py(corners[i + 1]));
    path.closePath();
    context.setLineDash([8 * devicePixelRatio, 5 * devicePixelRatio]);
    stroke(path, colours.outline);
    context.setLineDash([]);
  }
  if (isOn("corners")) {
    const corners = list("corners"), path = new Path2D();
    for (let i = 0; i < corners.length; i += 4) {
      const x = px(corners[i]), y = py(corners[i + 1]);
      const radius = Math.max(2.5 * devicePixelRatio, corners[i + 2] / 4 * view.scale);
      path.moveTo(x + radius * Math.cos(corners[i + 3]), y + radius * Math.sin(corners[i + 3]));
      path.arc(x, y, radius, corners[i + 3], corners[i + 3] + 2 * Math.PI);
      path.lineTo(x, y);
    }
    stroke(path, colours.corners, 1.2);
  }
}
