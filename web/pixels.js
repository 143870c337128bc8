// Samples of frames as the chain has them, and how they become colours.

const readers = {
  Char: (view, at) => view.getInt8(at), Uchar: (view, at) => view.getUint8(at),
  Short: (view, at) => view.getInt16(at, true), Ushort: (view, at) => view.getUint16(at, true) - 32768,
  Int: (view, at) => view.getInt32(at, true), Uint: (view, at) => view.getUint32(at, true),
  Float: (view, at) => view.getFloat32(at, true), Double: (view, at) => view.getFloat64(at, true),
  Half: (view, at) => {
    const bits = view.getUint16(at, true), exponent = (bits >> 10) & 31, fraction = bits & 1023;
    const size = exponent === 0 ? fraction * 2 ** -24 : exponent === 31 ? (fraction ? NaN : Infinity)
      : (1 + fraction / 1024) * 2 ** (exponent - 15);
    return bits & 0x8000 ? -size : size;
  },
};
const sizes = {Char: 1, Uchar: 1, Short: 2, Ushort: 2, Half: 2, Int: 4, Uint: 4, Float: 4, Double: 8};

/** The bytes that a PNG's grey values carry. */
async function bytesOf(blob) {
  const bitmap = await createImageBitmap(blob, {colorSpaceConversion: "none", premultiplyAlpha: "none"});
  const canvas = new OffscreenCanvas(bitmap.width, bitmap.height);
  const context = canvas.getContext("2d", {willReadFrequently: true});
  context.drawImage(bitmap, 0, 0);
  bitmap.close();
  const rgba = context.getImageData(0, 0, canvas.width, canvas.height).data;
  const bytes = new Uint8Array(rgba.length / 4);
  for (let i = 0; i < bytes.length; ++i) bytes[i] = rgba[4 * i];
  return bytes;
}

/** BT.601, studio range; without colour the whole range is grey. */
function yuyvToRgb(luma, u, v, put) {
  if (u === 128 && v === 128) return put(luma, luma, luma);
  const y = 1.164 * (luma - 16);
  put(y + 1.596 * (v - 128), y - 0.391 * (u - 128) - 0.813 * (v - 128), y + 2.018 * (u - 128));
}

/** The region's samples as an ImageData, mapped through the window [low, high]. */
function colours(bytes, head, [low, high]) {
  const [, , width, height] = head.region;
  const image = new ImageData(width, height), out = image.data;
  const factor = high > low ? 255 / (high - low) : 255;
  const map = (value) => value > low ? Math.min(255, Math.floor((value - low) * factor + 0.5)) : 0;
  let at = 0;
  const put = (r, g, b) => {
    out[at] = map(r);
    out[at + 1] = map(g);
    out[at + 2] = map(b);
    out[at + 3] = 255;
    at += 4;
  };
  const pixels = width * height;
  if (head.samples === "rgb8") {
    for (let i = 0; i < pixels; ++i) put(bytes[3 * i], bytes[3 * i + 1], bytes[3 * i + 2]);
  } else if (head.samples === "yuyv16") {
    for (let i = 0; i < pixels; ++i) {
      const x = i % width, even = i - (x & 1), odd = Math.min(even + 1, pixels - 1);
      yuyvToRgb(bytes[2 * i], bytes[2 * even + 1], bytes[2 * odd + 1], put);
    }
  } else {
    const view = new DataView(bytes.buffer), read = readers[head.kind], size = sizes[head.kind] * head.channels;
    for (let i = 0; i < pixels; ++i) {
      const value = read(view, i * size);
      put(value, value, value);
    }
  }
  return image;
}

/** A picture as it can be drawn, from an answer. */
export async function decode(head, buffer, offset) {
  const blob = new Blob([new Uint8Array(buffer, offset)], {type: "image/" + head.format});
  if (head.format === "jpeg") return createImageBitmap(blob);
  return createImageBitmap(colours(await bytesOf(blob), head, head.window));
}
