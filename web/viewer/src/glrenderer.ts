import type { Raster } from './raster.js';
import { placeOf, type Renderer, type Scene } from './renderer.js';
import type { Size } from './viewgeometry.js';

const vertexSource = `#version 300 es
uniform vec4 place; // left, top, right, bottom in clip space
out vec2 at;
void main() {
  vec2 corner = vec2(gl_VertexID & 1, gl_VertexID >> 1);
  at = corner;
  gl_Position = vec4(mix(place.xy, place.zw, corner), 0.0, 1.0);
}`;

// Samples are read one by one, so that the window is applied to samples and not to what filtering made of rounded
// light: between four neighbours where the picture is magnified, over a small grid where it is reduced.
const fragmentSource = `#version 300 es
precision highp float;
precision highp usampler2D;
uniform usampler2D samples;
uniform vec2 size;
uniform vec2 frameSize;
uniform float apart; // pixels of the frame from one sample to the next
uniform float origin; // and to the first one
uniform vec2 limits;
uniform float invert;
uniform int grid; // 0: between neighbours
uniform vec2 footprint; // of a screen pixel, in samples
in vec2 at;
out vec4 light;
Value sampleAt(vec2 position) {
  ivec2 texel = ivec2(clamp(floor(position), vec2(0.0), size - 1.0));
  return Value(texelFetch(samples, texel, 0).CHANNELS);
}
Value between(vec2 position) {
  vec2 p = position - 0.5;
  vec2 part = fract(p);
  vec2 low = floor(p) + 0.5;
  return mix(mix(sampleAt(low), sampleAt(low + vec2(1, 0)), part.x),
             mix(sampleAt(low + vec2(0, 1)), sampleAt(low + vec2(1, 1)), part.x), part.y);
}
void main() {
  vec2 position = (at * frameSize - 0.5 - origin) / apart + 0.5;
  Value value = Value(0.0);
  if (grid == 0) {
    value = between(position);
  } else {
    for (int y = 0; y < grid; ++y)
      for (int x = 0; x < grid; ++x)
        value += sampleAt(position + ((vec2(x, y) + 0.5) / float(grid) - 0.5) * footprint);
    value /= float(grid * grid);
  }
  Value shown = clamp((value - limits.x) / (limits.y - limits.x), 0.0, 1.0);
  light = vec4(vec3(mix(shown, 1.0 - shown, invert)), 1.0);
}`;

interface Program {
  program: WebGLProgram;
  location(name: string): WebGLUniformLocation | null;
}

function compile(gl: WebGL2RenderingContext, channels: 'r' | 'rgb'): Program {
  const program = gl.createProgram();
  for (const [type, source] of [[gl.VERTEX_SHADER, vertexSource], [gl.FRAGMENT_SHADER, fragmentSource.replace('CHANNELS', channels).replaceAll('Value', channels === 'r' ? 'float' : 'vec3')]] as const) {
    const shader = gl.createShader(type) as WebGLShader;
    gl.shaderSource(shader, source);
    gl.compileShader(shader);
    gl.attachShader(program, shader);
  }
  gl.linkProgram(program);
  if (!gl.getProgramParameter(program, gl.LINK_STATUS)) throw new Error(gl.getProgramInfoLog(program) ?? 'no shader');
  return { program, location: (name) => gl.getUniformLocation(program, name) };
}

/** WebGL2: samples of 8 or 16 bits in a texture, the window in the shader. */
export class GlRenderer implements Renderer {
  readonly name = 'webgl';
  readonly #canvas: HTMLCanvasElement;
  readonly #gl: WebGL2RenderingContext;
  readonly #grey: Program;
  readonly #colour: Program;
  #texture: WebGLTexture | null = null;
  #uploaded: Raster | undefined;

  /** Throws where there is no WebGL2. */
  constructor(canvas: HTMLCanvasElement) {
    const gl = canvas.getContext('webgl2', { alpha: false, antialias: false, depth: false, preserveDrawingBuffer: true });
    if (gl === null) throw new Error('there is no WebGL2');
    this.#canvas = canvas;
    this.#gl = gl;
    this.#grey = compile(gl, 'r');
    this.#colour = compile(gl, 'rgb');
  }

  takes({ raster }: Scene): boolean {
    return Math.max(raster.width, raster.height) <= (this.#gl.getParameter(this.#gl.MAX_TEXTURE_SIZE) as number);
  }

  draw(scene: Scene | null, size: Size): void {
    const gl = this.#gl;
    if (this.#canvas.width !== size.width) this.#canvas.width = size.width;
    if (this.#canvas.height !== size.height) this.#canvas.height = size.height;
    gl.viewport(0, 0, size.width, size.height);
    gl.clearColor(0, 0, 0, 1);
    gl.clear(gl.COLOR_BUFFER_BIT);
    if (scene === null) return;
    if (this.#uploaded !== scene.raster) this.#upload(scene.raster);
    this.#drawQuad(scene, size);
  }

  #drawQuad(scene: Scene, size: Size): void {
    const gl = this.#gl;
    const { raster, limits, invert, view, aspect } = scene;
    const { program, location } = raster.channels === 3 ? this.#colour : this.#grey;
    const [left, top, width, height] = placeOf(scene, size);
    const [right, bottom] = [left + width, top + height];
    gl.useProgram(program);
    gl.uniform4f(location('place'), (2 * left) / size.width - 1, 1 - (2 * top) / size.height, (2 * right) / size.width - 1, 1 - (2 * bottom) / size.height);
    gl.uniform2f(location('size'), raster.width, raster.height);
    gl.uniform2f(location('frameSize'), raster.frameWidth, raster.frameHeight);
    gl.uniform1f(location('apart'), raster.apart);
    gl.uniform1f(location('origin'), raster.origin);
    const [black, white]: [number, number] = raster.channels === 3 ? [0, 255] : limits;
    gl.uniform2f(location('limits'), black, white);
    gl.uniform1f(location('invert'), invert ? 1 : 0);
    const footprint = [1 / (view.scale * raster.apart), 1 / (view.scale * aspect * raster.apart)] as const;
    gl.uniform2f(location('footprint'), ...footprint);
    gl.uniform1i(location('grid'), Math.max(...footprint) <= 1 ? 0 : Math.min(Math.ceil(Math.max(...footprint)), 6));
    gl.drawArrays(gl.TRIANGLE_STRIP, 0, 4);
  }

  #upload(raster: Raster): void {
    const gl = this.#gl;
    gl.deleteTexture(this.#texture);
    this.#texture = gl.createTexture();
    gl.bindTexture(gl.TEXTURE_2D, this.#texture);
    gl.pixelStorei(gl.UNPACK_ALIGNMENT, 1);
    for (const parameter of [gl.TEXTURE_MIN_FILTER, gl.TEXTURE_MAG_FILTER]) gl.texParameteri(gl.TEXTURE_2D, parameter, gl.NEAREST);
    const [inside, format, type] =
      raster.channels === 3 ? [gl.RGB8UI, gl.RGB_INTEGER, gl.UNSIGNED_BYTE]
      : raster.pixels instanceof Uint16Array ? [gl.R16UI, gl.RED_INTEGER, gl.UNSIGNED_SHORT]
      : [gl.R8UI, gl.RED_INTEGER, gl.UNSIGNED_BYTE];
    gl.texImage2D(gl.TEXTURE_2D, 0, inside, raster.width, raster.height, 0, format, type, raster.pixels);
    this.#uploaded = raster;
  }
}
