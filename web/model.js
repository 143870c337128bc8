// Meshes and point clouds in three dimensions.
import {change, onState, state} from "./state.js";
import * as THREE from "./three/build/three.module.js";
import {OrbitControls} from "./three/examples/jsm/controls/OrbitControls.js";
import {short} from "./dom.js";

const box = document.getElementById("model");
let renderer, scene, camera, controls, group = null, bounds = null, pending = false, wanted = null, version = "";

function render() {
  if (pending) return;
  pending = true;
  requestAnimationFrame(() => {
    pending = false;
    if (!group) return;
    renderer.render(scene, camera);
    box.dataset.drawn = version;
  });
}

function start() {
  renderer = new THREE.WebGLRenderer({antialias: true, preserveDrawingBuffer: true});
  renderer.setClearColor(0x1b2124);
  renderer.domElement.tabIndex = 0;
  renderer.domElement.setAttribute("role", "img");
  renderer.domElement.setAttribute("aria-label", "Model: drag to turn, wheel to zoom, arrow keys to move");
  box.append(renderer.domElement);
  scene = new THREE.Scene();
  camera = new THREE.PerspectiveCamera(40, 1, 0.01, 1000);
  const key = new THREE.DirectionalLight(0xffffff, 0.75), fill = new THREE.DirectionalLight(0xffffff, 0.3);
  key.position.set(0.5, 0.8, 1);
  fill.position.set(-1, -0.4, 0.3);
  camera.add(key, fill);
  scene.add(camera, new THREE.AmbientLight(0xffffff, 0.35));
  controls = new OrbitControls(camera, renderer.domElement);
  controls.addEventListener("change", render);
  new ResizeObserver(() => {
    const {width, height} = box.getBoundingClientRect();
    if (!width || !height) return;
    renderer.setPixelRatio(devicePixelRatio);
    renderer.setSize(width, height, false);
    camera.aspect = width / height;
    camera.updateProjectionMatrix();
    render();
  }).observe(box);
  onState((changed) => {
    if (["wire", "colours", "flat", "normals"].some((name) => changed.has(name)) && wanted) build(wanted);
  });
}

export function resetView() {
  if (!bounds) return;
  const centre = new THREE.Vector3().addVectors(bounds.low, bounds.high).multiplyScalar(0.5);
  const size = Math.max(1e-6, bounds.low.distanceTo(bounds.high));
  camera.near = size / 500;
  camera.far = size * 20;
  camera.position.copy(centre).add(new THREE.Vector3(0.45, 0.35, 1).normalize().multiplyScalar(size * 1.25));
  camera.updateProjectionMatrix();
  controls.target.copy(centre);
  controls.update();
  render();
}

function listOf(model, name, buffer, offset, Type) {
  const place = model.lists[name];
  return place ? new Type(buffer, offset + place[0], place[1]) : null;
}

/** Three vertices of their own for every triangle, with a colour a triangle. */
function spread(source, indices, width, Type) {
  const to = new Type(indices.length * width);
  for (let i = 0, at = 0; i < indices.length; ++i)
    for (let c = 0; c < width; ++c) to[at++] = source[indices[i] * width + c];
  return to;
}

function geometryOf({lists, faceColours, useFaces}) {
  const geometry = new THREE.BufferGeometry(), {positions, indices, vertexColours, normals, uv} = lists;
  const attribute = (name, values, width, normalised = false) => geometry.setAttribute(name, new THREE.BufferAttribute(values, width, normalised));
  if (!useFaces) {
    attribute("position", positions, 3);
    if (indices) geometry.setIndex(new THREE.BufferAttribute(indices, 1));
    if (vertexColours) attribute("color", vertexColours, 3, true);
    if (uv) attribute("uv", uv, 2);
    if (normals) attribute("normal", normals, 3);
    else if (indices) geometry.computeVertexNormals();
    return geometry;
  }
  attribute("position", spread(positions, indices, 3, Float32Array), 3);
  const colours = new Uint8Array(indices.length * 3);
  for (let i = 0; i < indices.length; ++i)
    for (let c = 0; c < 3; ++c) colours[3 * i + c] = faceColours[3 * Math.floor(i / 3) + c];
  attribute("color", colours, 3, true);
  if (normals) attribute("normal", spread(normals, indices, 3, Float32Array), 3);
  return geometry;
}

async function textureOf(place, buffer, offset) {
  const bytes = new Uint8Array(buffer, offset + place.file[0], place.file[1]);
  const texture = new THREE.Texture(await createImageBitmap(new Blob([bytes]), {imageOrientation: "flipY"}));
  texture.flipY = false;
  texture.needsUpdate = true;
  return texture;
}

/** Texture coordinates from columns and rows of the pictures. */
function coordinates(lists, textures) {
  if (lists.uv || !lists.pixels) return lists.uv;
  const uv = new Float32Array(lists.pixels.length), {views, indices} = lists;
  const viewOf = new Int32Array(uv.length / 2);
  if (views) indices.forEach((vertex, i) => { viewOf[vertex] = views[Math.floor(i / 3)]; });
  for (let i = 0; i < uv.length / 2; ++i) {
    const size = textures[viewOf[i]] ?? textures[0] ?? {width: 1, height: 1};
    uv[2 * i] = (lists.pixels[2 * i] + 0.5) / size.width;
    uv[2 * i + 1] = 1 - (lists.pixels[2 * i + 1] + 0.5) / size.height;
  }
  return uv;
}

async function texturedMeshes(lists, model, buffer, offset) {
  const uv = coordinates(lists, model.textures), {views, indices} = lists, meshes = [];
  for (const [view, place] of model.textures.entries()) {
    if (!place.file) continue;
    const own = !views ? indices : indices.filter((_, i) => views[Math.floor(i / 3)] === view);
    if (!own.length) continue;
    const geometry = geometryOf({lists: {...lists, uv, indices: own, vertexColours: null}});
    meshes.push(new THREE.Mesh(geometry, new THREE.MeshBasicMaterial({map: await textureOf(place, buffer, offset), side: THREE.DoubleSide, wireframe: Boolean(state.wire)})));
  }
  return meshes;
}

async function objectsOf({model, buffer, offset}) {
  const types = {positions: Float32Array, indices: Uint32Array, vertexColours: Uint8Array, faceColours: Uint8Array, normals: Float32Array, pixels: Float32Array, uv: Float32Array, views: Int32Array};
  const lists = {};
  for (const [name, Type] of Object.entries(types)) lists[name] = listOf(model, name, buffer, offset, Type);
  if (!lists.indices) {
    const geometry = geometryOf({lists});
    return [new THREE.Points(geometry, new THREE.PointsMaterial({size: 2, sizeAttenuation: false, vertexColors: lists.vertexColours && state.colours ? THREE.VertexColors : THREE.NoColors, color: lists.vertexColours && state.colours ? 0xffffff : 0x3aa89d}))];
  }
  if (state.colours && model.textures.some(({file}) => file)) {
    const meshes = await texturedMeshes(lists, model, buffer, offset);
    if (meshes.length) return meshes;
  }
  const useFaces = Boolean(state.colours && lists.faceColours), hasColours = state.colours && (useFaces || lists.vertexColours);
  const geometry = geometryOf({lists, faceColours: lists.faceColours, useFaces});
  const options = {side: THREE.DoubleSide, wireframe: Boolean(state.wire), flatShading: Boolean(state.flat) || (useFaces && !lists.normals),
    vertexColors: hasColours ? THREE.VertexColors : THREE.NoColors, color: hasColours ? 0xffffff : 0xb9c4cc};
  return [new THREE.Mesh(geometry, state.normals ? new THREE.MeshNormalMaterial({side: THREE.DoubleSide, wireframe: options.wireframe, flatShading: options.flatShading}) : options.flatShading ? new THREE.MeshPhongMaterial({...options, shininess: 0}) : new THREE.MeshLambertMaterial(options))];
}

async function build(answer) {
  const objects = await objectsOf(answer);
  if (answer !== wanted) return;
  if (group) {
    scene.remove(group);
    group.traverse((object) => {
      object.geometry?.dispose();
      object.material?.map?.dispose();
      object.material?.dispose();
    });
  }
  group = new THREE.Group();
  group.add(...objects);
  scene.add(group);
  version = String(answer.version);
  render();
}

/** Shows an answer to a request for a model; returns a line of facts. */
export async function showModel(head, buffer, offset) {
  if (!renderer) start();
  const {model} = head;
  wanted = {model, buffer, offset, version: head.version};
  const low = new THREE.Vector3(...model.bounds.low), high = new THREE.Vector3(...model.bounds.high);
  const isNew = !bounds;
  bounds = {low, high};
  await build(wanted);
  if (isNew) resetView();
  const count = (name, width) => (model.lists[name]?.[1] ?? 0) / width;
  const size = new THREE.Vector3().subVectors(high, low).toArray().map(short).join(" × ");
  const what = model.lists.indices ? `${count("indices", 3).toLocaleString("en")} triangles, ` : "";
  return `${what}${count("positions", 3).toLocaleString("en")} ${what ? "vertices" : "points"}, ${size}${model.error ? `; ${model.error}` : ""}`;
}
