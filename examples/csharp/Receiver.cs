// A host in C#: a capture through a moving average, in several threads, and what the library says of a wrong chain.
using System;
using System.Globalization;
using System.Threading.Tasks;
using Tarnwick;

static class Receiver
{
    private const string Json = "{\"device\": {\"baudRateGBd\": 10, \"samplesPerUi\": 8, \"signalCoding\": \"NRZ\", " +
                                "\"patternLengthUi\": 4}, \"filters\": [{\"type\": \"moving-average\", \"WindowLength\": 5}]}";

    static int Main()
    {
        var samples = new double[32];  // the pattern 0110
        for (var k = 8; k < 24; ++k)
            samples[k] = 0.4;
        Parallel.For(0, 100, _ =>
        {
            using (var own = new Chain(Json, null, samples.Length))
                if (Math.Abs(own.Apply(samples)[8] - 0.24) > 1e-12)
                    throw new InvalidOperationException("a thread got another result");
        });
        using (var chain = new Chain(Json, null, samples.Length))
        {
            var filtered = chain.Apply(samples);
            for (var k = 5; k < 12; ++k)
                Console.WriteLine(string.Format(CultureInfo.InvariantCulture, "{0,2} {1:0.000} V {2:0.000} V", k, samples[k], filtered[k]));
            Console.WriteLine(chain.Report().Contains("\"peakToPeak\"") ? "report: whole" : "report: not understood");
        }
        try
        {
            new Chain(Json.Replace("moving-average", "mowing-average"), "Ordner für Dateien", samples.Length);
        }
        catch (TarnwickException failure)
        {
            Console.WriteLine("error " + failure.Code + ": " + failure.Message);
        }
        return 0;
    }
}
